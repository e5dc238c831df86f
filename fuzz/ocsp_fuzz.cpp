// Arbitrary bytes into the OCSP response reader, then every question of a
// response that loaded, its signature checked against each certificate it
// carries. Invariants: a failed load says why and leaves the object empty; every
// SingleResponse is found again by its own CertID when that was hashed with
// SHA-1; a status that loaded has a name.
#include <cstdlib>

#include "cert/CertCore.h"
#include "revocation/OcspResponse.h"
#include "support/base/LogBase.h"

using revocation::OcspAsked;
using revocation::OcspResponse;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    LogTree log;
    OcspResponse r;
    if (!r.load(data, size, log)) {
        if (!log.hasErrors() || r.hasBasic() || !r.responses().empty() || r.responseStatus() != -1)
            abort();
        return 0;
    }
    if (!OcspResponse::statusName(r.responseStatus())) abort();
    static const unsigned char kSha1[] = {0x2b, 0x0e, 0x03, 0x02, 0x1a};
    for (const auto& s : r.responses()) {
        OcspAsked asked;
        asked.issuerNameHash.append(s.issuerNameHash.data(), s.issuerNameHash.size());
        asked.issuerKeyHash.append(s.issuerKeyHash.data(), s.issuerKeyHash.size());
        asked.serial.append(s.serial.data(), s.serial.size());
        asked.nonce.append(s.serial.data(), s.serial.size());
        if (s.hashAlgOid.equals(kSha1, sizeof kSha1) && !r.find(asked)) abort();
        r.nonce(asked);
        if (s.thisUpdate.empty()) abort();
    }
    for (DerInput der : r.certs()) {
        CertCore* c = CertCore::createFromDer2(der.data(), static_cast<unsigned>(der.size()),
                                               nullptr, nullptr, log);
        if (!c) continue;
        c->incRefCount();
        r.verify(c, log);
        c->decRefCount();
    }
    r.verify(nullptr, log);
    return 0;
}
