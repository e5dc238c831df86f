// The token session's key lookup for a certificate object. It lives with the
// certificate code so that the PKCS#11 library does not depend on it.
#include "cert/CertCore.h"
#include "support/pkcs11/ClsPkcs11.h"

unsigned long ClsPkcs11::findPrivKeyHandle(CertCore& cert, bool mustBeAbleToSign, int& keyType,
                                           int& expectedSigSize, LogBase& log) {
    keyType = 0;
    expectedSigSize = 0;
    if (cert.m_magic != CertCore::kMagic) return 0;
    // The certificate's lock, then this object's: the order hasPrivateKey takes
    // them in. Holding it lets the lookup read the parsed views without a copy.
    CritSecExitor lock(&cert);
    OrvaneX509* x = cert.getX509();
    if (!x) {
        log.logError("The certificate has no DER to match a token key against.");
        return 0;
    }
    return findPrivKeyHandleForCert(x->certDer(), x->spkiDer(), mustBeAbleToSign, keyType,
                                    expectedSigSize, log);
}
