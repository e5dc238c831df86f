// `ovcert describe`: the certificate object's descriptive JSON, one object per
// certificate.
#pragma once

#include "tools/ovcert/Command.h"

extern const Command kDescribeCommand;
