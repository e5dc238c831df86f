// One line that says why an input gave no certificate, for a user who has not
// read the component's log: what was found, and what to try.
#pragma once

#include <string>

#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"

// bytes: the whole input as read; log: the component's log of the failed load.
std::string explainLoadFailure(const DataBuffer& bytes, const LogTree& log);

// Notes about a successful load that the user should know (a private key that
// was skipped), one line each; empty when there is nothing to say.
std::string loadNotes(const std::string& name, const LogTree& log);
