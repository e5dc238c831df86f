// Names of the revocation reasons a CRL entry or an OCSP answer can carry
// (CRLReason, RFC 5280 5.3.1), shared by the CRL and OCSP readers so both say
// the same word for the same code.
#pragma once

namespace revocation {

// "keyCompromise", "cACompromise", ... for a defined code; null for the
// unused value 7 and anything out of range.
const char* reasonName(int code);

}  // namespace revocation
