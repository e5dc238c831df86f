// Arbitrary text into the PEM container, then every certificate and key it
// read is asked for its DER / key id.
#include <cstdlib>
#include <string>

#include "cert/CertCore.h"
#include "support/pem/ClsCert.h"
#include "support/pem/ClsPem.h"
#include "support/pem/ClsPrivateKey.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);  // zero-terminated copy
    ClsPem* pem = ClsPem::createNewCls();
    pem->incRefCount();
    LogTree log;
    XString password("secret");
    bool ok = pem->loadPem(text.c_str(), password, nullptr, log);
    if (ok != (pem->get_NumCerts() + pem->get_NumPrivateKeys() > 0)) abort();
    for (int i = 0; i < pem->get_NumCerts(); ++i) {
        ClsCert* c = pem->getCert(i, log);
        DataBuffer der;
        if (!c || !c->getCertificateDoNotDelete()->getDEREncodedCert(der)) abort();
        c->decRefCount();
    }
    for (int i = 0; i < pem->get_NumPrivateKeys(); ++i) {
        ClsPrivateKey* k = pem->getClsPrivateKey(i, log);
        _ovPublicKey key;
        StringBuffer id;
        if (!k || !k->toPrivateKey(key, log)) abort();
        key.getOrvaneKeyId64(id, log);
        k->decRefCount();
    }
    pem->decRefCount();
    return 0;
}
