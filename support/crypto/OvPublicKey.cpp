#include "support/crypto/OvPublicKey.h"

#include <cstring>

#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"
#include "support/crypto/KeyOssl.h"
#include "support/crypto/KeyPem.h"

namespace {

DerInput view(const DataBuffer& b) {
    return DerInput(b.getData2(), b.getSize());
}

bool isPrivateLabel(const char* text, const keypem::Block& b) {
    return b.labelIs(text, "PRIVATE KEY") || b.labelIs(text, "RSA PRIVATE KEY") ||
           b.labelIs(text, "EC PRIVATE KEY") || b.labelIs(text, "DSA PRIVATE KEY") ||
           b.labelIs(text, "ENCRYPTED PRIVATE KEY");
}

bool isPublicLabel(const char* text, const keypem::Block& b) {
    return b.labelIs(text, "PUBLIC KEY") || b.labelIs(text, "RSA PUBLIC KEY");
}

}  // namespace

_ovPublicKey::_ovPublicKey() {
    m_pkcs8.setSecure(true);
}

_ovPublicKey::~_ovPublicKey() {
    clearPublicKey();
}

void _ovPublicKey::clearPublicKey() {
    m_kind = KeyKind::None;
    m_bits = 0;
    m_curveOid[0] = '\0';
    m_spki.clear();
    m_pkcs8.secureClear();
    m_pkey.reset();
}

const char* _ovPublicKey::keyTypeStr() const {
    switch (m_kind) {
        case KeyKind::Rsa:
            return "rsa";
        case KeyKind::Dsa:
            return "dsa";
        case KeyKind::Ec:
            return "ecdsa";
        case KeyKind::Ed25519:
        case KeyKind::Ed448:
            return "eddsa";
        case KeyKind::Other:
            return "unknown";
        default:
            return "none";
    }
}

int _ovPublicKey::keyTypeCode() const {
    return KeyTypeCode::of(m_kind);
}

void _ovPublicKey::logKeyType(LogBase& log) {
    log.logData("keyType", keyTypeStr());
    log.LogDataLong("keyBits", static_cast<long>(m_bits));
}

bool _ovPublicKey::adopt(DataBuffer& spki, DataBuffer* pkcs8, LogBase& log) {
    SpkiView v;
    KeyFacts facts;
    if (!keyder::parseSpki(view(spki), &v, log) || !keyder::spkiFacts(v, &facts, log)) return false;
    if (pkcs8 && facts.kind == KeyKind::Other) {
        log.logError("Unsupported private key algorithm.");
        return false;
    }
    m_spki.clear();
    if (!m_spki.append(spki)) return false;
    if (pkcs8) {
        m_pkcs8.secureClear();
        if (!m_pkcs8.append(*pkcs8)) {
            m_spki.clear();
            return false;
        }
    }
    m_kind = facts.kind;
    m_bits = facts.bits;
    memcpy(m_curveOid, facts.curveOid, sizeof m_curveOid);
    return true;
}

bool _ovPublicKey::loadAnyDer(const DataBuffer& der, LogBase& log) {
    return loadDer(der.getData2(), der.getSize(), log);
}

bool _ovPublicKey::loadDer(const unsigned char* p, unsigned n, LogBase& log) {
    clearPublicKey();
    const DerInput der(p, n);
    const DerForm form = keyder::detectForm(der);
    DataBuffer spki;
    switch (form) {
        case DerForm::Spki:
            if (!spki.append(p, n)) return false;
            return adopt(spki, nullptr, log);
        case DerForm::RsaPublic:
            return keyder::spkiFromRsaPublic(der, spki, log) && adopt(spki, nullptr, log);
        case DerForm::EncryptedPkcs8:
            log.logError("The private key is encrypted; a password is needed.");
            return false;
        case DerForm::Unknown:
            log.logError("The DER is not a public or private key in a known form.");
            return false;
        default:
            break;
    }
    DataBuffer pkcs8;
    pkcs8.setSecure(true);
    if (!keyder::normalisePrivate(form, der, pkcs8, spki, log)) return false;
    ossl::PkeyPtr key;
    if (spki.isEmpty()) {
        // The file left the public key out: have OpenSSL compute it.
        key = keyossl::fromPkcs8(view(pkcs8), log);
        if (!key || !keyossl::appendSpki(key.get(), spki, log)) return false;
    }
    if (!adopt(spki, &pkcs8, log)) {
        clearPublicKey();
        return false;
    }
    m_pkey = std::move(key);
    return true;
}

bool _ovPublicKey::loadEncryptedDer(const DataBuffer& der, const char* password, LogBase& log) {
    clearPublicKey();
    if (keyder::detectForm(view(der)) != DerForm::EncryptedPkcs8) {
        log.logError("The DER is not an encrypted private key.");
        return false;
    }
    DataBuffer pkcs8;
    pkcs8.setSecure(true);
    return keyossl::decryptDerToPkcs8(view(der), password, pkcs8, log) && loadAnyDer(pkcs8, log);
}

bool _ovPublicKey::loadPemBlock(const char* text, unsigned n, const char* password, LogBase& log) {
    DataBuffer der;
    der.setSecure(true);
    keypem::Block b;
    unsigned pos = 0;
    if (!keypem::nextBlock(text, n, &pos, &b)) return false;
    const bool encrypted = b.encryptedHeaders || b.labelIs(text, "ENCRYPTED PRIVATE KEY");
    if (encrypted) {
        if (!password) {
            log.logError("The PEM private key is encrypted; a password is needed.");
            return false;
        }
        if (!keyossl::decryptPemToPkcs8(text + b.blockStart, b.blockEnd - b.blockStart, password,
                                        der, log))
            return false;
        return loadAnyDer(der, log);
    }
    if (!keypem::decodeBody(text, b, der)) {
        log.logError("The PEM key block is not valid base64.");
        return false;
    }
    return loadAnyDer(der, log);
}

namespace {

// The key block to load: with preferPrivate the first private key block, else
// (or when there is none) the first key block of any kind.
bool chooseKeyBlock(const char* text, unsigned n, bool preferPrivate, keypem::Block* out) {
    keypem::Block b;
    unsigned pos = 0;
    bool haveAny = false;
    while (keypem::nextBlock(text, n, &pos, &b)) {
        const bool priv = isPrivateLabel(text, b);
        if (!priv && !isPublicLabel(text, b)) continue;
        if (priv || !preferPrivate) {
            *out = b;
            return true;
        }
        if (!haveAny) {
            *out = b;
            haveAny = true;
        }
    }
    return haveAny;
}

}  // namespace

bool _ovPublicKey::loadChosenPemBlock(bool preferPrivate, XString& pem, const char* password,
                                      LogBase& log) {
    clearPublicKey();
    const char* text = pem.getUtf8();
    keypem::Block b;
    if (!chooseKeyBlock(text, pem.getSizeUtf8(), preferPrivate, &b)) {
        log.logError("No key found in the PEM.");
        return false;
    }
    return loadPemBlock(text + b.blockStart, b.blockEnd - b.blockStart, password, log);
}

bool _ovPublicKey::loadPem(bool preferPrivate, XString& pem, LogBase& log) {
    return loadChosenPemBlock(preferPrivate, pem, nullptr, log);
}

bool _ovPublicKey::loadPemWithPassword(XString& pem, const char* password, LogBase& log) {
    // A non-null password (even empty) is what tells an encrypted block may be opened.
    return loadChosenPemBlock(true, pem, password ? password : "", log);
}

bool _ovPublicKey::copyFromPubKey(const _ovPublicKey& other, LogBase& log) {
    if (&other == this) return true;
    clearPublicKey();
    if (other.isEmpty()) return true;
    if (!m_spki.append(other.m_spki) || !m_pkcs8.append(other.m_pkcs8)) {
        log.logError("Out of memory copying the key.");
        clearPublicKey();
        return false;
    }
    m_kind = other.m_kind;
    m_bits = other.m_bits;
    memcpy(m_curveOid, other.m_curveOid, sizeof m_curveOid);
    // An EVP_PKEY is immutable once built and counted by reference, so both
    // containers can share it.
    if (other.m_pkey && EVP_PKEY_up_ref(other.m_pkey.get()) == 1) m_pkey.reset(other.m_pkey.get());
    return true;
}

bool _ovPublicKey::toPubKeyDer(bool spki, DataBuffer& out, LogBase& log) const {
    if (isEmpty()) {
        log.logError("No key.");
        return false;
    }
    if (spki || m_kind != KeyKind::Rsa) return out.append(m_spki);
    SpkiView v;
    if (!keyder::parseSpki(view(m_spki), &v, log)) return false;
    return out.append(v.keyBits.data(), static_cast<unsigned>(v.keyBits.size()));
}

bool _ovPublicKey::toPrivKeyDer(bool pkcs8, DataBuffer& out, LogBase& log) const {
    if (!isPrivateKey()) {
        log.logError("Not a private key.");
        return false;
    }
    out.setSecure(true);
    if (pkcs8) return out.append(m_pkcs8);
    const char* label = nullptr;
    return keyder::traditionalFromPkcs8(view(m_pkcs8), view(m_spki), out, &label, log);
}

bool _ovPublicKey::toPrivateKeyPem(bool pkcs8, StringBuffer& out, LogBase& log) const {
    if (!isPrivateKey()) {
        log.logError("Not a private key.");
        return false;
    }
    out.setSecure(true);
    DataBuffer der;
    der.setSecure(true);
    const char* label = "PRIVATE KEY";
    if (pkcs8) {
        if (!der.append(m_pkcs8)) return false;
    } else if (!keyder::traditionalFromPkcs8(view(m_pkcs8), view(m_spki), der, &label, log)) {
        return false;
    }
    return keypem::appendBlock(label, der.getData2(), der.getSize(), out);
}

bool _ovPublicKey::toPublicKeyPem(StringBuffer& out, LogBase& log) const {
    if (isEmpty()) {
        log.logError("No key.");
        return false;
    }
    return keypem::appendBlock("PUBLIC KEY", m_spki.getData2(), m_spki.getSize(), out);
}

bool _ovPublicKey::getOrvaneKeyId64(StringBuffer& out, LogBase& log) const {
    if (isEmpty()) {
        log.logError("No key.");
        return false;
    }
    return keyder::keyId64(view(m_spki), out, log);
}

bool _ovPublicKey::keyIdFromSpki(const unsigned char* spki, unsigned n, StringBuffer& out,
                                 LogBase& log) {
    return keyder::keyId64(DerInput(spki, n), out, log);
}

bool _ovPublicKey::spkiKeyInfo(const unsigned char* spki, unsigned n, KeyKind& kind, unsigned& bits,
                               LogBase& log) {
    SpkiView v;
    KeyFacts facts;
    kind = KeyKind::None;
    bits = 0;
    if (!keyder::parseSpki(DerInput(spki, n), &v, log) || !keyder::spkiFacts(v, &facts, log))
        return false;
    kind = facts.kind;
    bits = facts.bits;
    return true;
}

EVP_PKEY* _ovPublicKey::evpKey(LogBase& log) const {
    if (m_pkey) return m_pkey.get();
    if (isEmpty()) {
        log.logError("No key.");
        return nullptr;
    }
    m_pkey = isPrivateKey() ? keyossl::fromPkcs8(view(m_pkcs8), log)
                            : keyossl::fromSpki(view(m_spki), log);
    return m_pkey.get();
}
