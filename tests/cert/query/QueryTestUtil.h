// Helpers of the certificate query and public key tests: fixtures of
// tests/data/query, the openssl command line as oracle, and stale objects.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "cert/CertCore.h"
#include "cert/CertTestUtil.h"
#include "support_common/TestUtil.h"

namespace qtest {

inline std::string path(const std::string& name) {
    return ovtest::dataPath("query/" + name);
}

// A fixture parsed into a new CertCore (count 0; wrap it in certtest::CertRef).
// The loader's own log is kept apart from the caller's, which stays empty.
inline CertCore* load(const std::string& name, LogBase& /*log*/) {
    LogTree log;
    CertCore* cert = CertCore::createFromFile2(path(name).c_str(), nullptr, log);
    if (!cert) ADD_FAILURE() << "cannot load " << name << ":\n" << log.text();
    return cert;
}

// Runs a shell command and returns its output without the final newline. A
// command that fails fails the test: a missing oracle never passes silently.
inline std::string sh(const std::string& cmd) {
    std::string out;
    int rc = ovtest::run(cmd, &out);
    if (rc != 0) ADD_FAILURE() << "command failed (" << rc << "): " << cmd;
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
    return out;
}

inline std::string ossl(const std::string& file, const std::string& args) {
    return sh("openssl x509 -in " + ovtest::shq(path(file)) + " " + args);
}

inline std::string hexOf(const unsigned char* p, size_t n) {
    static const char* const digits = "0123456789ABCDEF";
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        s += digits[p[i] >> 4];
        s += digits[p[i] & 15];
    }
    return s;
}

inline std::string hexOf(const DataBuffer& db) {
    return hexOf(db.getData2(), db.getSize());
}

inline std::string bytesOf(const DataBuffer& db) {
    return std::string(reinterpret_cast<const char*>(db.getData2()), db.getSize());
}

// The certificate's DER as openssl writes it.
inline std::string opensslDer(const std::string& file) {
    ovtest::TempDir dir;
    sh("openssl x509 -in " + ovtest::shq(path(file)) + " -outform DER -out " +
       ovtest::shq(dir.file("c.der")));
    return ovtest::readFile(dir.file("c.der"));
}

// One element as openssl asn1parse lists it.
struct DerItem {
    size_t offset = 0;
    size_t headerLen = 0;
    size_t len = 0;
    int depth = 0;
};

// Every element of the certificate, in asn1parse order.
inline std::vector<DerItem> opensslItems(const std::string& file) {
    std::string text = sh("openssl asn1parse -in " + ovtest::shq(path(file)));
    std::vector<DerItem> items;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t eol = text.find('\n', pos);
        if (eol == std::string::npos) eol = text.size();
        std::string line = text.substr(pos, eol - pos);
        pos = eol + 1;
        DerItem it;
        if (std::sscanf(line.c_str(), " %zu:d=%d hl=%zu l=%zu", &it.offset, &it.depth,
                        &it.headerLen, &it.len) == 4) {
            items.push_back(it);
        }
    }
    return items;
}

// The TBSCertificate's fields (depth 2), the version field not counted, so
// that index 0 is the serial, 2 the issuer, 4 the subject, 5 the SPKI.
inline std::vector<DerItem> tbsFields(const std::string& file) {
    std::vector<DerItem> out;
    std::string der = opensslDer(file);
    for (const DerItem& it : opensslItems(file)) {
        if (it.depth != 2) continue;
        // [0] EXPLICIT version: context tag A0.
        if (out.empty() && static_cast<unsigned char>(der[it.offset]) == 0xA0) continue;
        out.push_back(it);
    }
    return out;
}

inline std::string slice(const std::string& der, const DerItem& it, bool withHeader) {
    size_t start = withHeader ? it.offset : it.offset + it.headerLen;
    size_t n = withHeader ? it.headerLen + it.len : it.len;
    return der.substr(start, n);
}

// Marks an object stale for the life of the guard, as a destroyed one looks.
struct Stale {
    explicit Stale(CertCore* c) : cert(c), saved(c->m_magic) { cert->m_magic = 0; }
    ~Stale() { cert->m_magic = saved; }
    Stale(const Stale&) = delete;
    Stale& operator=(const Stale&) = delete;
    CertCore* cert;
    uint32_t saved;
};

// The three kinds of output a query writes, pre-filled so that any change shows.
struct Outs {
    Outs() { d.append("old", 3); }
    DataBuffer d;
    StringBuffer s{"old"};
    XString x{"old"};
    bool touched() const { return d.getSize() != 3 || !s.equals("old") || !x.equalsUtf8("old"); }
    bool emptied() const { return d.isEmpty() || s.isEmpty() || x.isEmpty(); }
};

// One query; its result as a number (false, 0 and null are 0).
using Op = std::function<long(CertCore*, Outs&, LogBase&)>;

// A GuardCase operation from an expression over c (the object), o (the Outs)
// and l (the log).
#define QUERY_OP(expr)                                    \
    [](CertCore* c, qtest::Outs& o, LogBase& l) -> long { \
        (void)o;                                          \
        (void)l;                                          \
        return (expr);                                    \
    }

struct GuardCase {
    const char* name;
    Op op;
    bool clearsWhenEmpty;  // a valid object without certificate empties the output
    bool clearsWhenStale;  // so does a stale one (the output is cleared first)
};

// Runs every case on a valid object without certificate and on `loaded` made
// stale: the answer is 0, nothing is logged, and the output is emptied exactly
// when the case says so (and otherwise left as it was).
template <size_t N>
void checkEmptyAndStale(const GuardCase (&cases)[N], CertCore* loaded) {
    certtest::CertRef empty(CertCore::createNewCert());
    ASSERT_TRUE(empty && loaded);
    for (const GuardCase& c : cases) {
        SCOPED_TRACE(c.name);
        for (bool stale : {false, true}) {
            SCOPED_TRACE(stale ? "stale" : "without certificate");
            LogTree log;
            Outs o;
            long r;
            if (stale) {
                Stale guard(loaded);
                r = c.op(loaded, o, log);
            } else {
                r = c.op(empty.get(), o, log);
            }
            EXPECT_EQ(r, 0);
            bool cleared = stale ? c.clearsWhenStale : c.clearsWhenEmpty;
            EXPECT_EQ(o.touched(), cleared);
            EXPECT_EQ(o.emptied(), cleared);
            EXPECT_EQ(log.numEntries(), 0) << log.text();
        }
    }
}

}  // namespace qtest
