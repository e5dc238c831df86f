#include "support/pkcs11/Pkcs11KeyFinder.h"

#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/pkcs11/CertPublicKeyParts.h"

namespace {

DerInput viewOf(const DataBuffer& db) {
    return DerInput(db.getData2(), db.getSize());
}

// CKA_EC_PARAMS forms that name Ed448: its OID, or the PKCS#11 3.0 curve name.
const unsigned char kEd448Oid[] = {0x06, 0x03, 0x2b, 0x65, 0x71};  // 1.3.101.113 id-Ed448
const unsigned char kEd448Name[] = {0x13, 0x0a, 'e', 'd', 'w', 'a', 'r', 'd', 's', '4', '4', '8'};

}  // namespace

bool Pkcs11KeyFinder::ckkForKeyType(int keyType, CK_KEY_TYPE& ckk) {
    switch (keyType) {
        case CertPublicKeyParts::kRsa:
            ckk = CKK_RSA;
            return true;
        case CertPublicKeyParts::kDsa:
            ckk = CKK_DSA;
            return true;
        case CertPublicKeyParts::kEcdsa:
            ckk = CKK_EC;
            return true;
        case CertPublicKeyParts::kEdDsa:
            ckk = CKK_EC_EDWARDS;
            return true;
        default:
            return false;
    }
}

int Pkcs11KeyFinder::keyTypeForCkk(CK_KEY_TYPE ckk) {
    switch (ckk) {
        case CKK_RSA:
            return CertPublicKeyParts::kRsa;
        case CKK_DSA:
            return CertPublicKeyParts::kDsa;
        case CKK_EC:
            return CertPublicKeyParts::kEcdsa;
        case CKK_EC_EDWARDS:
            return CertPublicKeyParts::kEdDsa;
        default:
            return CertPublicKeyParts::kUnknown;
    }
}

int Pkcs11KeyFinder::keyTypeFor(CK_KEY_TYPE ckk, const DerInput* edParams) {
    const int type = keyTypeForCkk(ckk);
    if (type == CertPublicKeyParts::kEdDsa && edParams &&
        (edParams->equals(kEd448Oid, sizeof kEd448Oid) ||
         edParams->equals(kEd448Name, sizeof kEd448Name)))
        return CertPublicKeyParts::kUnknown;
    return type;
}

int Pkcs11KeyFinder::keyTypeOf(CK_OBJECT_HANDLE key) {
    CK_ULONG ckk = 0;
    if (!m_session.getUlongAttribute(key, CKA_KEY_TYPE, ckk)) return CertPublicKeyParts::kUnknown;
    DataBuffer params;
    if (ckk == CKK_EC_EDWARDS && m_session.getAttribute(key, CKA_EC_PARAMS, params)) {
        const DerInput curve = viewOf(params);
        return keyTypeFor(ckk, &curve);
    }
    return keyTypeFor(ckk, nullptr);
}

bool Pkcs11KeyFinder::findPrivateKeys(CK_ATTRIBUTE* extra, CK_ULONG extraCount,
                                      std::vector<CK_OBJECT_HANDLE>& out, LogBase& log) {
    CK_OBJECT_CLASS cls = CKO_PRIVATE_KEY;
    CK_BBOOL yes = CK_TRUE;
    std::vector<CK_ATTRIBUTE> tmpl;
    tmpl.push_back({CKA_CLASS, &cls, sizeof cls});
    if (m_mustSign) tmpl.push_back({CKA_SIGN, &yes, sizeof yes});
    for (CK_ULONG i = 0; i < extraCount; ++i) tmpl.push_back(extra[i]);
    return m_session.findObjects(tmpl.data(), static_cast<CK_ULONG>(tmpl.size()), out, log);
}

CK_OBJECT_HANDLE Pkcs11KeyFinder::viaCertificateObject(DerInput certDer, LogBase& log) {
    // Every certificate object is compared by reading its value rather than
    // searching with CKA_VALUE in the template: some tokens do not index large
    // attributes and answer such a search with nothing.
    CK_OBJECT_CLASS cls = CKO_CERTIFICATE;
    CK_ATTRIBUTE certTmpl[] = {{CKA_CLASS, &cls, sizeof cls}};
    std::vector<CK_OBJECT_HANDLE> certs;
    if (!m_session.findObjects(certTmpl, 1, certs, log)) return 0;

    DataBuffer value, id;
    std::vector<CK_OBJECT_HANDLE> keys;
    for (CK_OBJECT_HANDLE c : certs) {
        if (!m_session.getAttribute(c, CKA_VALUE, value) || !viewOf(value).equals(certDer))
            continue;
        if (!m_session.getAttribute(c, CKA_ID, id) || id.isEmpty()) continue;
        CK_ATTRIBUTE byId[] = {{CKA_ID, const_cast<unsigned char*>(id.getData2()), id.getSize()}};
        if (!findPrivateKeys(byId, 1, keys, log)) return 0;
        if (!keys.empty()) return keys.front();
    }
    return 0;
}

template <class Pred>
bool Pkcs11KeyFinder::publicValueMatches(CK_OBJECT_HANDLE privKey, CK_ATTRIBUTE_TYPE type,
                                         bool fromPrivate, Pred matches, LogBase& log) {
    DataBuffer value;
    // PKCS#11 puts the modulus on RSA private keys, but EC private keys carry
    // only the curve: their point lives on the public-key object of the pair.
    if (fromPrivate && m_session.getAttribute(privKey, type, value)) return matches(viewOf(value));

    DataBuffer id;
    if (!m_session.getAttribute(privKey, CKA_ID, id) || id.isEmpty()) return false;
    CK_OBJECT_CLASS cls = CKO_PUBLIC_KEY;
    CK_ATTRIBUTE tmpl[] = {{CKA_CLASS, &cls, sizeof cls},
                           {CKA_ID, const_cast<unsigned char*>(id.getData2()), id.getSize()}};
    std::vector<CK_OBJECT_HANDLE> pubs;
    if (!m_session.findObjects(tmpl, 2, pubs, log)) return false;
    for (CK_OBJECT_HANDLE pub : pubs) {
        if (m_session.getAttribute(pub, type, value) && matches(viewOf(value))) return true;
    }
    return false;
}

bool Pkcs11KeyFinder::keyMatches(CK_OBJECT_HANDLE privKey, const CertPublicKeyParts& cert,
                                 LogBase& log) {
    switch (cert.keyType()) {
        case CertPublicKeyParts::kRsa:
            return publicValueMatches(
                privKey, CKA_MODULUS, true, [&](DerInput v) { return cert.matchesModulus(v); },
                log);
        case CertPublicKeyParts::kEcdsa:
        case CertPublicKeyParts::kEdDsa: {
            // The point decides; the curve is checked too when the token names it,
            // so that equal bytes on another curve cannot pass.
            DataBuffer params;
            if (m_session.getAttribute(privKey, CKA_EC_PARAMS, params) &&
                !cert.matchesEcParams(viewOf(params)))
                return false;
            return publicValueMatches(
                privKey, CKA_EC_POINT, true, [&](DerInput v) { return cert.matchesEcPoint(v); },
                log);
        }
        case CertPublicKeyParts::kDsa:
            // A DSA private key's CKA_VALUE is the secret x: never read it.
            return publicValueMatches(
                privKey, CKA_VALUE, false,
                [&](DerInput v) { return cert.matchesDsaPublicValue(v); }, log);
        default:
            return false;
    }
}

CK_OBJECT_HANDLE Pkcs11KeyFinder::viaPublicKey(const CertPublicKeyParts& cert, LogBase& log) {
    CK_KEY_TYPE ckk = 0;
    if (!ckkForKeyType(cert.keyType(), ckk)) return 0;
    CK_ATTRIBUTE byType[] = {{CKA_KEY_TYPE, &ckk, sizeof ckk}};
    std::vector<CK_OBJECT_HANDLE> keys;
    if (!findPrivateKeys(byType, 1, keys, log)) return 0;
    for (CK_OBJECT_HANDLE k : keys) {
        if (keyMatches(k, cert, log)) return k;
    }
    return 0;
}
