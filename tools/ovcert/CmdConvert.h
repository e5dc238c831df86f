// `ovcert convert`: a certificate re-encoded as DER, PEM or PkiPath.
#pragma once

#include "tools/ovcert/Command.h"

extern const Command kConvertCommand;
