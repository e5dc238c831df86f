// `ovcert ocsp`: ask a certificate's OCSP responder, or read a saved response.
#pragma once

#include "tools/ovcert/Command.h"

extern const Command kOcspCommand;
