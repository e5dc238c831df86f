#include "support/pem/ClsPem.h"

#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "cert/CertCore.h"
#include "support/asn1/DerReader.h"
#include "support/base/ContentCoding.h"
#include "support/pem/ClsCert.h"
#include "support/pem/ClsPrivateKey.h"

namespace {

enum class BlockKind { Cert, Pkcs7, PlainKey, EncryptedKey, Other };

BlockKind kindOf(const std::string& label) {
    if (label == "CERTIFICATE" || label == "X509 CERTIFICATE" || label == "TRUSTED CERTIFICATE")
        return BlockKind::Cert;
    if (label == "PKCS7") return BlockKind::Pkcs7;
    if (label == "PRIVATE KEY" || label == "RSA PRIVATE KEY" || label == "EC PRIVATE KEY" ||
        label == "DSA PRIVATE KEY")
        return BlockKind::PlainKey;
    if (label == "ENCRYPTED PRIVATE KEY") return BlockKind::EncryptedKey;
    return BlockKind::Other;
}

struct Block {
    std::string label;
    const char* begin;    // start of "-----BEGIN"
    const char* body;     // after the begin line
    const char* bodyEnd;  // start of "-----END"
    const char* end;      // after the end line
};

// Finds the next complete block at or after p. A begin line without a matching
// end line ends the search.
bool nextBlock(const char* p, Block* b) {
    for (;;) {
        const char* beg = strstr(p, "-----BEGIN ");
        if (!beg) return false;
        const char* lab = beg + 11;
        const char* labEnd = strstr(lab, "-----");
        const char* eol = strpbrk(lab, "\r\n");
        if (!labEnd || (eol && eol < labEnd)) {
            p = lab;
            continue;
        }
        std::string label(lab, static_cast<size_t>(labEnd - lab));
        std::string endLine = "-----END " + label + "-----";
        const char* body = labEnd + 5;
        const char* e = strstr(body, endLine.c_str());
        if (!e) return false;
        b->label = label;
        b->begin = beg;
        b->body = body;
        b->bodyEnd = e;
        b->end = e + endLine.size();
        return true;
    }
}

// Body bytes of a block; traditional encrypted keys carry RFC 1421 headers
// ("Proc-Type:", "DEK-Info:") before a blank line.
// Looked at where it lies: a copy of a key's body would leave it in freed memory.
bool hasHeaders(const Block& b) {
    std::string_view body(b.body, static_cast<size_t>(b.bodyEnd - b.body));
    return body.find("Proc-Type:") != std::string_view::npos ||
           body.find("DEK-Info:") != std::string_view::npos;
}

}  // namespace

ClsPem* ClsPem::createNewCls() {
    return new (std::nothrow) ClsPem();
}

ClsPem::~ClsPem() {
    for (ClsCert* c : m_certs) c->decRefCount();
    for (ClsPrivateKey* k : m_keys) k->decRefCount();
}

int ClsPem::get_NumCerts() const {
    CritSecExitor lock(const_cast<ClsPem*>(this));
    return static_cast<int>(m_certs.size());
}

int ClsPem::get_NumPrivateKeys() const {
    CritSecExitor lock(const_cast<ClsPem*>(this));
    return static_cast<int>(m_keys.size());
}

namespace {

// Element n with a reference for the caller, or null (and why) out of range.
template <class T>
T* retainedAt(const std::vector<T*>& items, int n, const char* outOfRange, LogBase& log) {
    if (n < 0 || static_cast<size_t>(n) >= items.size()) {
        log.logError(outOfRange);
        return nullptr;
    }
    T* item = items[static_cast<size_t>(n)];
    item->incRefCount();
    return item;
}

}  // namespace

ClsCert* ClsPem::getCert(int n, LogBase& log) {
    CritSecExitor lock(this);
    return retainedAt(m_certs, n, "Certificate index out of range.", log);
}

ClsPrivateKey* ClsPem::getClsPrivateKey(int n, LogBase& log) {
    CritSecExitor lock(this);
    return retainedAt(m_keys, n, "Private key index out of range.", log);
}

bool ClsPem::addCertDer(const unsigned char* der, unsigned n, LogBase& log) {
    CertCore* cert = CertCore::createFromDer2(der, n, nullptr, nullptr, log);
    if (!cert) return false;
    ClsCert* c = ClsCert::createFromCert(cert);
    if (!c) {
        delete cert;
        return false;
    }
    try {
        m_certs.push_back(c);
    } catch (...) {
        c->decRefCount();
        return false;
    }
    c->incRefCount();
    return true;
}

// Adds every certificate of a PKCS#7 SignedData; returns how many were added.
int ClsPem::addPkcs7(const unsigned char* der, unsigned n, LogBase& log) {
    // ContentInfo ::= SEQUENCE { contentType OID, content [0] EXPLICIT ANY }
    // SignedData ::= SEQUENCE { version, digestAlgorithms SET, encapContentInfo,
    //                           certificates [0] IMPLICIT SET OF Certificate OPTIONAL, ... }
    // BER is allowed: exporters stream SignedData with indefinite lengths.
    DerParser top(DerInput(der, n), true);
    DerParser ci, content, sd, certs;
    DerInput oid;
    if (!top.readSequence(&ci) || !ci.readOid(&oid) ||
        !ci.readConstructed(der::contextConstructed(0), &content) || !content.readSequence(&sd)) {
        log.logError("PKCS7 block is not a ContentInfo holding SignedData.");
        return 0;
    }
    static const unsigned char kSignedData[] = {0x2a, 0x86, 0x48, 0x86, 0xf7,
                                                0x0d, 0x01, 0x07, 0x02};
    if (!oid.equals(kSignedData, sizeof kSignedData)) {
        log.logError("PKCS7 block is not SignedData.");
        return 0;
    }
    if (!sd.skip() || !sd.skip() || !sd.skip() || !sd.nextIs(der::contextConstructed(0)) ||
        !sd.readConstructed(der::contextConstructed(0), &certs)) {
        log.logInfo("PKCS7 block holds no certificates.");
        return 0;
    }
    int added = 0;
    while (certs.hasMore()) {
        DerElement e;
        if (!certs.readAny(&e)) {
            log.logError("Malformed certificate set in PKCS7 block.");
            break;
        }
        if (e.tag != der::kSequence) continue;  // attribute certificates and the like
        if (addCertDer(e.whole.data(), static_cast<unsigned>(e.whole.size()), log)) ++added;
    }
    return added;
}

bool ClsPem::loadPem(const char* text, XString& password, ProgressMonitor* /*progress*/,
                     LogBase& log) {
    LogContextExitor ctx(log, "loadPem");
    if (!text) {
        log.logError("No PEM text given.");
        return false;
    }
    CritSecExitor lock(this);
    int readCerts = 0, readKeys = 0;
    Block b;
    const char* p = text;
    while (nextBlock(p, &b)) {
        p = b.end;
        BlockKind kind = kindOf(b.label);
        if (kind == BlockKind::Other) continue;

        if (kind == BlockKind::PlainKey && hasHeaders(b)) kind = BlockKind::EncryptedKey;
        DataBuffer der;
        der.m_secure = (kind == BlockKind::PlainKey || kind == BlockKind::EncryptedKey);
        if (!hasHeaders(b) && !ContentCoding::decodeBase64ToDb(
                                  b.body, static_cast<unsigned>(b.bodyEnd - b.body), der)) {
            log.logError("PEM block body is not base64; block skipped.");
            log.logData("block", b.label.c_str());
            continue;
        }

        if (kind == BlockKind::Cert) {
            if (addCertDer(der.getData2(), der.getSize(), log)) ++readCerts;
            continue;
        }
        if (kind == BlockKind::Pkcs7) {
            readCerts += addPkcs7(der.getData2(), der.getSize(), log);
            continue;
        }

        ClsPrivateKey* key = ClsPrivateKey::createNewCls();
        if (!key) return false;
        _ovPublicKey k;
        bool ok;
        if (kind == BlockKind::PlainKey) {
            ok = k.loadAnyDer(der, log) && k.isPrivateKey();
        } else if (password.isEmpty()) {
            log.logInfo("Warning: encrypted private key skipped: no password was given.");
            ok = false;
        } else if (!hasHeaders(b)) {
            LogNull quiet(log);
            ok = k.loadEncryptedDer(der, password.getUtf8(), quiet);
            if (!ok)
                log.logInfo("Warning: encrypted private key skipped: it could not be decrypted.");
        } else {
            XString block;
            block.setSecureX(true);
            block.appendUtf8N(b.begin, static_cast<unsigned>(b.end - b.begin));
            LogNull quiet(log);
            ok = k.loadPemWithPassword(block, password.getUtf8(), quiet);
            if (!ok)
                log.logInfo("Warning: encrypted private key skipped: it could not be decrypted.");
        }
        if (ok && key->setFromKey(k, log)) {
            try {
                m_keys.push_back(key);
                key->incRefCount();
                ++readKeys;
                continue;
            } catch (...) {
            }
        } else if (kind == BlockKind::PlainKey) {
            log.logInfo("Warning: private key block could not be read; skipped.");
        }
        key->decRefCount();
    }
    log.LogDataLong("numCertsRead", readCerts);
    log.LogDataLong("numKeysRead", readKeys);
    if (readCerts == 0 && readKeys == 0) {
        log.logError("No certificate or private key could be read from the PEM.");
        return false;
    }
    return true;
}
