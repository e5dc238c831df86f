// Arbitrary bytes through format detection (which reaches every loader), then
// the everyday questions of a certificate that loaded. Invariant: a loaded
// certificate exports DER that loads again to the same DER.
#include <cstdlib>
#include <cstring>

#include "cert/CertCore.h"
#include "support/store/SystemCerts.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    LogTree log;
    SystemCerts* store = new SystemCerts();
    store->incRefCount();
    CertCore* cert = CertCore::createFromBinary2(reinterpret_cast<const char*>(data),
                                                 static_cast<unsigned>(size), store, log);
    if (cert) {
        cert->incRefCount();
        XString x;
        StringBuffer sb;
        DataBuffer db;
        int bits = 0;
        cert->getSubjectDN(x, log);
        cert->getIssuerDN(x, log);
        cert->getSubjectPart("CN", x, log);
        cert->getSerialNumber(x, log);
        cert->getSerialDecimal(x, log);
        cert->getValidFromSb(sb, log);
        cert->getValidToSb(sb, log);
        cert->getSha1ThumbprintX(x, log);
        cert->getExtendedKeyUsage(sb, log);
        cert->getIntendedKeyUsage(log);
        cert->getCertKeyType(bits, log);
        cert->isIssuerSelf(log);
        cert->is_country_eu(log);
        cert->getPem(sb, log);
        cert->getX509PKIPathv1(sb, log);
        cert->toXml(x, log);

        DataBuffer der;
        if (!cert->getDEREncodedCert(der)) abort();
        CertCore* again = CertCore::createFromDer2(der.getData2(), der.getSize(), nullptr, nullptr,
                                                   log);
        if (!again) abort();
        DataBuffer der2;
        again->getDEREncodedCert(der2);
        if (!der.equals(der2)) abort();
        again->decRefCount();
        cert->decRefCount();
    } else if (size > 0 && log.numEntries() == 0) {
        abort();  // a failure always says why (at least its context)
    }
    store->decRefCount();
    return 0;
}
