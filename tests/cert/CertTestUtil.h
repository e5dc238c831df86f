// Shared helpers of the certificate-object tests.
#pragma once

#include <string>

#include "cert/CertCore.h"
#include "support/base/RefPtr.h"
#include "support_common/TestUtil.h"

namespace certtest {

inline std::string fixture(const std::string& name) {
    return ovtest::readFile(ovtest::dataPath("cert/" + name));
}

// A fresh certificate (count 0) from a DER fixture, or null.
inline CertCore* loadDer(const std::string& name, LogBase& log) {
    std::string der = fixture(name);
    return CertCore::createFromDer2(reinterpret_cast<const unsigned char*>(der.data()),
                                    static_cast<unsigned>(der.size()), nullptr, nullptr, log);
}

inline std::string derOf(CertCore* cert) {
    DataBuffer db;
    if (!cert || !cert->getDEREncodedCert(db)) return std::string();
    return std::string(reinterpret_cast<const char*>(db.getData2()), db.getSize());
}

// Holds a factory's fresh object (count 0) for the test.
struct CertRef : RefPtr<CertCore> {
    explicit CertRef(CertCore* c = nullptr) : RefPtr<CertCore>(RefPtr<CertCore>::retain(c)) {}
};

inline std::string subjectCn(CertCore* cert) {
    XString out;
    LogNull log;
    if (!cert || !cert->getX509()) return "";
    cert->getX509()->get_SubjectCN(out, log);
    return out.getUtf8();
}

}  // namespace certtest
