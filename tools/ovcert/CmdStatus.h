// `ovcert status`: is a certificate revoked? OCSP first, then its CRL.
#pragma once

#include "tools/ovcert/Command.h"

extern const Command kStatusCommand;
