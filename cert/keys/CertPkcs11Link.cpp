// The token session's key lookup for a certificate object. It lives with the
// certificate code so that the PKCS#11 library does not depend on it.
#include "cert/CertCore.h"
#include "support/pkcs11/ClsPkcs11.h"

unsigned long ClsPkcs11::findPrivKeyHandle(CertCore& cert, bool mustBeAbleToSign, int& keyType,
                                           int& expectedSigSize, LogBase& log) {
    // Read the DER under the certificate's lock and let it go before the
    // session's lock is taken: callers may hold the certificate's lock already,
    // and the two must never be waited for in the other order.
    DataBuffer der;
    if (!cert.getDEREncodedCert(der)) {
        log.logError("The certificate has no DER to match a token key against.");
        return 0;
    }
    return findPrivKeyHandleForCert(der.getData2(), der.getSize(), mustBeAbleToSign, keyType,
                                    expectedSigSize, log);
}
