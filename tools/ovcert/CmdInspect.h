// `ovcert inspect`: what a file's certificates say, as text or JSON.
#pragma once

#include "tools/ovcert/Command.h"

extern const Command kInspectCommand;
