// `ovcert crl`: what a CRL says (issuer, times, CRL number, entry count,
// signature check, one serial or every entry), read from a file or downloaded
// through the CRL cache.
#pragma once

#include "tools/ovcert/Command.h"

extern const Command kCrlCommand;
