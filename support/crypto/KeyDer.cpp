#include "support/crypto/KeyDer.h"

#include <cstring>
#include <utility>

#include "support/asn1/DerBuild.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/crypto/KeyOssl.h"
#include "support/crypto/OvHash.h"

namespace {

const CurveInfo kCurves[] = {
    {"1.2.840.10045.3.1.7", "P-256", 256, 32},              // prime256v1
    {"1.3.132.0.34", "P-384", 384, 48},                     // secp384r1
    {"1.3.132.0.35", "P-521", 521, 66},                     // secp521r1
    {"1.3.132.0.10", "secp256k1", 256, 32},                 // secp256k1
    {"1.3.132.0.33", "P-224", 224, 28},                     // secp224r1
    {"1.2.840.10045.3.1.1", "P-192", 192, 24},              // prime192v1
    {"1.3.36.3.3.2.8.1.1.7", "brainpoolP256r1", 256, 32},   // brainpoolP256r1
    {"1.3.36.3.3.2.8.1.1.11", "brainpoolP384r1", 384, 48},  // brainpoolP384r1
    {"1.3.36.3.3.2.8.1.1.13", "brainpoolP512r1", 512, 64},  // brainpoolP512r1
};

// Content octets of an INTEGER without the leading zero bytes; empty for zero.
DerInput magnitude(DerInput integer) {
    size_t i = 0;
    while (i < integer.size() && integer[i] == 0) ++i;
    return integer.sub(i, integer.size() - i);
}

bool isPositiveInteger(DerInput c) {
    return !c.empty() && !(c[0] & 0x80) && !magnitude(c).empty();
}

KeyKind kindFromOid(const char* oid) {
    if (!strcmp(oid, keyoid::kRsaEncryption) || !strcmp(oid, keyoid::kRsaPss)) return KeyKind::Rsa;
    if (!strcmp(oid, keyoid::kEcPublicKey)) return KeyKind::Ec;
    if (!strcmp(oid, keyoid::kDsa)) return KeyKind::Dsa;
    if (!strcmp(oid, keyoid::kEd25519)) return KeyKind::Ed25519;
    if (!strcmp(oid, keyoid::kEd448)) return KeyKind::Ed448;
    return KeyKind::Other;
}

// AlgorithmIdentifier ::= SEQUENCE { algorithm OBJECT IDENTIFIER, parameters ANY OPTIONAL }
struct AlgId {
    DerInput whole;
    DerInput params;  // whole element, empty when absent
    char oid[80] = {0};
};

bool readAlgId(DerParser& p, AlgId* out) {
    DerElement e;
    if (!p.readElement(der::kSequence, &e)) return false;
    DerParser inner(e.contents);
    DerInput oid;
    if (!inner.readOid(&oid) || !der::oidToText(oid, out->oid, sizeof out->oid)) return false;
    out->whole = e.whole;
    out->params = DerInput();
    if (inner.hasMore()) {
        DerElement pe;
        if (!inner.readAny(&pe) || inner.hasMore()) return false;
        out->params = pe.whole;
    }
    return true;
}

// The named curve of EC parameters, dotted. Explicit curve parameters (a
// SEQUENCE) are refused: no CA issues them any more and they invite
// curve-substitution attacks.
bool namedCurve(DerInput params, char* out, size_t outSize, LogBase& log) {
    DerParser p(params);
    DerInput oid;
    if (p.nextIs(der::kSequence)) {
        log.logError("Explicit EC curve parameters are not supported.");
        return false;
    }
    if (!p.readOid(&oid) || p.hasMore() || !der::oidToText(oid, out, outSize)) {
        log.logError("The EC key does not name its curve.");
        return false;
    }
    return true;
}

unsigned curveBits(const char* curveOid, LogBase& log) {
    if (const CurveInfo* c = findCurve(curveOid)) return c->bits;
    unsigned bits = 0;
    if (keyossl::curveBits(curveOid, &bits)) return bits;
    log.logError("Unsupported elliptic curve.");
    log.logData("curveOid", curveOid);
    return 0;
}

// RSAPublicKey ::= SEQUENCE { modulus INTEGER, publicExponent INTEGER }
bool readRsaPublic(DerInput der, DerInput* n, DerInput* e) {
    DerParser top(der);
    DerParser seq;
    if (!top.readSequence(&seq) || top.hasMore()) return false;
    if (!seq.readIntegerBytes(n) || !seq.readIntegerBytes(e) || seq.hasMore()) return false;
    return isPositiveInteger(*n) && isPositiveInteger(*e);
}

// AlgorithmIdentifier of a plain RSA key: rsaEncryption with NULL parameters,
// the form every encoder writes (absent parameters are read too).
bool rsaAlgId(DataBuffer& out) {
    DataBuffer body;
    return derbuild::oid(body, keyoid::kRsaEncryption) && derbuild::null(body) &&
           derbuild::tlv(out, der::kSequence, body);
}

bool buildSpki(DerInput algIdWhole, DerInput keyBits, DataBuffer& spki) {
    DataBuffer body;
    return body.append(algIdWhole.data(), static_cast<unsigned>(algIdWhole.size())) &&
           derbuild::bitString(body, keyBits) && derbuild::tlv(spki, der::kSequence, body);
}

bool rsaSpki(DerInput algIdWhole, DerInput n, DerInput e, DataBuffer& spki) {
    DataBuffer alg;
    if (algIdWhole.empty()) {
        if (!rsaAlgId(alg)) return false;
        algIdWhole = DerInput(alg.getData2(), alg.getSize());
    }
    DataBuffer ints, pub;
    if (!derbuild::tlv(ints, der::kInteger, n) || !derbuild::tlv(ints, der::kInteger, e) ||
        !derbuild::tlv(pub, der::kSequence, ints))
        return false;
    return buildSpki(algIdWhole, DerInput(pub.getData2(), pub.getSize()), spki);
}

// ECAlgorithmIdentifier with a named curve.
bool ecAlgId(const char* curveOid, DataBuffer& out) {
    DataBuffer body;
    return derbuild::oid(body, keyoid::kEcPublicKey) && derbuild::oid(body, curveOid) &&
           derbuild::tlv(out, der::kSequence, body);
}

// PrivateKeyInfo of version 0 around an algorithm's own private key encoding.
bool wrapPkcs8(DerInput algIdWhole, DerInput privateKey, DataBuffer& pkcs8) {
    DataBuffer body;
    body.setSecure(true);
    return derbuild::smallInteger(body, 0) &&
           body.append(algIdWhole.data(), static_cast<unsigned>(algIdWhole.size())) &&
           derbuild::tlv(body, der::kOctetString, privateKey) &&
           derbuild::tlv(pkcs8, der::kSequence, body);
}

// ECPrivateKey ::= SEQUENCE {
//   version        INTEGER { ecPrivkeyVer1(1) },
//   privateKey     OCTET STRING,
//   parameters [0] ECParameters {{ NamedCurve }} OPTIONAL,
//   publicKey  [1] BIT STRING OPTIONAL }
struct Sec1 {
    DerInput d;
    DerInput params;    // contents of [0]: the ECParameters element
    DerInput pubPoint;  // the point, without the unused-bits byte
};

bool readSec1(DerInput der, Sec1* out) {
    DerParser top(der);
    DerParser seq;
    uint64_t version = 0;
    if (!top.readSequence(&seq) || top.hasMore()) return false;
    if (!seq.readUint64(&version) || version != 1) return false;
    if (!seq.read(der::kOctetString, &out->d) || out->d.empty()) return false;
    bool present = false;
    if (!seq.readOptional(der::contextConstructed(0), &out->params, &present)) return false;
    DerInput pubWrap;
    if (!seq.readOptional(der::contextConstructed(1), &pubWrap, &present)) return false;
    if (present) {
        DerParser pw(pubWrap);
        unsigned unused = 0;
        if (!pw.readBitString(&out->pubPoint, &unused) || unused != 0 || pw.hasMore()) return false;
    }
    return !seq.hasMore();
}

// DSA-Parms ::= SEQUENCE { p INTEGER, q INTEGER, g INTEGER }
bool dsaParamBits(DerInput params, unsigned* bits) {
    DerParser top(params);
    DerParser seq;
    DerInput p, q, g;
    if (!top.readSequence(&seq) || top.hasMore()) return false;
    if (!seq.readIntegerBytes(&p) || !seq.readIntegerBytes(&q) || !seq.readIntegerBytes(&g) ||
        seq.hasMore())
        return false;
    if (!isPositiveInteger(p) || !isPositiveInteger(q) || !isPositiveInteger(g)) return false;
    *bits = keyder::integerBits(p);
    return true;
}

bool logBad(LogBase& log, const char* msg) {
    log.logError(msg);
    return false;
}

bool normaliseRsaPrivate(DerInput der, DataBuffer& pkcs8, DataBuffer& spki, LogBase& log) {
    // RSAPrivateKey ::= SEQUENCE { version, modulus, publicExponent, privateExponent,
    //   prime1, prime2, exponent1, exponent2, coefficient, otherPrimeInfos OPTIONAL }
    DerParser top(der);
    DerParser seq;
    uint64_t version = 0;
    DerInput n, e;
    if (!top.readSequence(&seq) || !seq.readUint64(&version) || version > 1 ||
        !seq.readIntegerBytes(&n) || !seq.readIntegerBytes(&e) || !isPositiveInteger(n) ||
        !isPositiveInteger(e))
        return logBad(log, "Invalid RSA private key.");
    DataBuffer alg;
    if (!rsaAlgId(alg)) return false;
    DerInput algIn(alg.getData2(), alg.getSize());
    return wrapPkcs8(algIn, der, pkcs8) && rsaSpki(algIn, n, e, spki);
}

bool normaliseSec1(DerInput der, DataBuffer& pkcs8, DataBuffer& spki, LogBase& log) {
    Sec1 k;
    if (!readSec1(der, &k)) return logBad(log, "Invalid EC private key.");
    if (k.params.empty()) return logBad(log, "The EC private key does not name its curve.");
    char curve[40];
    if (!namedCurve(k.params, curve, sizeof curve, log)) return false;
    DataBuffer alg;
    if (!ecAlgId(curve, alg)) return false;
    DerInput algIn(alg.getData2(), alg.getSize());
    if (!wrapPkcs8(algIn, der, pkcs8)) return false;
    return k.pubPoint.empty() || buildSpki(algIn, k.pubPoint, spki);
}

bool normaliseDsaPrivate(DerInput der, DataBuffer& pkcs8, DataBuffer& spki, LogBase& log) {
    // DSAPrivateKey ::= SEQUENCE { version INTEGER, p, q, g, y, x INTEGER }
    DerParser top(der);
    DerParser seq;
    uint64_t version = 0;
    DerInput p, q, g, y, x;
    if (!top.readSequence(&seq) || !seq.readUint64(&version) || version != 0 ||
        !seq.readIntegerBytes(&p) || !seq.readIntegerBytes(&q) || !seq.readIntegerBytes(&g) ||
        !seq.readIntegerBytes(&y) || !seq.readIntegerBytes(&x) || seq.hasMore() ||
        !isPositiveInteger(p) || !isPositiveInteger(y) || !isPositiveInteger(x))
        return logBad(log, "Invalid DSA private key.");
    DataBuffer pqg, params, algBody, alg;
    if (!derbuild::tlv(pqg, der::kInteger, p) || !derbuild::tlv(pqg, der::kInteger, q) ||
        !derbuild::tlv(pqg, der::kInteger, g) || !derbuild::tlv(params, der::kSequence, pqg) ||
        !derbuild::oid(algBody, keyoid::kDsa) || !algBody.append(params) ||
        !derbuild::tlv(alg, der::kSequence, algBody))
        return false;
    DerInput algIn(alg.getData2(), alg.getSize());
    DataBuffer xInt, yInt;
    xInt.setSecure(true);
    if (!derbuild::tlv(xInt, der::kInteger, x) || !derbuild::tlv(yInt, der::kInteger, y))
        return false;
    return wrapPkcs8(algIn, DerInput(xInt.getData2(), xInt.getSize()), pkcs8) &&
           buildSpki(algIn, DerInput(yInt.getData2(), yInt.getSize()), spki);
}

// PrivateKeyInfo ::= SEQUENCE {
//   version                   Version,
//   privateKeyAlgorithm       AlgorithmIdentifier,
//   privateKey                OCTET STRING,
//   attributes           [0]  IMPLICIT Attributes OPTIONAL,
//   publicKey            [1]  IMPLICIT BIT STRING OPTIONAL }   -- version 1 only
struct Pkcs8View {
    uint64_t version = 0;
    AlgId alg;
    DerInput privateKey;
    DerInput publicKey;  // [1] without its unused-bits byte; empty when absent
};

bool readPkcs8(DerInput der, Pkcs8View* out) {
    DerParser top(der);
    DerParser seq;
    if (!top.readSequence(&seq) || top.hasMore()) return false;
    if (!seq.readUint64(&out->version) || out->version > 1) return false;
    if (!readAlgId(seq, &out->alg)) return false;
    if (!seq.read(der::kOctetString, &out->privateKey)) return false;
    if (seq.nextIs(der::contextConstructed(0)) && !seq.skip()) return false;
    if (seq.nextIs(der::contextPrimitive(1))) {
        DerInput bits;
        if (!seq.read(der::contextPrimitive(1), &bits) || bits.empty() || bits[0] != 0)
            return false;
        out->publicKey = bits.sub(1, bits.size() - 1);
    }
    return !seq.hasMore();
}

// Keeps a version 0 PrivateKeyInfo as it came (attributes included). Version 1
// (OneAsymmetricKey, RFC 5958) is rewritten as version 0 without the public key,
// which OpenSSL 3.0 and older readers refuse.
bool storePkcs8(const Pkcs8View& v, DerInput der, DataBuffer& pkcs8) {
    if (v.version == 0) return pkcs8.append(der.data(), static_cast<unsigned>(der.size()));
    return wrapPkcs8(v.alg.whole, v.privateKey, pkcs8);
}

bool normalisePkcs8(DerInput der, DataBuffer& pkcs8, DataBuffer& spki, LogBase& log) {
    Pkcs8View v;
    if (!readPkcs8(der, &v)) return logBad(log, "Invalid PKCS#8 private key.");
    const KeyKind kind = kindFromOid(v.alg.oid);
    DerInput algIn = v.alg.whole;
    DataBuffer alg;
    switch (kind) {
        case KeyKind::Rsa: {
            DerParser top(v.privateKey);
            DerParser seq;
            uint64_t version = 0;
            DerInput n, e;
            if (!top.readSequence(&seq) || !seq.readUint64(&version) || !seq.readIntegerBytes(&n) ||
                !seq.readIntegerBytes(&e) || !isPositiveInteger(n) || !isPositiveInteger(e))
                return logBad(log, "Invalid RSA private key.");
            if (!storePkcs8(v, der, pkcs8)) return false;
            // A PSS key keeps its restricting parameters; plain RSA gets the usual NULL.
            if (!strcmp(v.alg.oid, keyoid::kRsaEncryption)) algIn = DerInput();
            return rsaSpki(algIn, n, e, spki);
        }
        case KeyKind::Ec: {
            Sec1 k;
            if (!readSec1(v.privateKey, &k)) return logBad(log, "Invalid EC private key.");
            DerInput params = v.alg.params.empty() ? k.params : v.alg.params;
            char curve[40];
            if (params.empty()) return logBad(log, "The EC private key does not name its curve.");
            if (!namedCurve(params, curve, sizeof curve, log) || !ecAlgId(curve, alg)) return false;
            if (!storePkcs8(v, der, pkcs8)) return false;
            DerInput point = k.pubPoint.empty() ? v.publicKey : k.pubPoint;
            return point.empty() || buildSpki(DerInput(alg.getData2(), alg.getSize()), point, spki);
        }
        case KeyKind::Dsa:
        case KeyKind::Ed25519:
        case KeyKind::Ed448:
            // The public value is not stored beside these (unless version 1 carries
            // it); it is computed from the private one.
            if (!storePkcs8(v, der, pkcs8)) return false;
            return v.publicKey.empty() || buildSpki(algIn, v.publicKey, spki);
        default:
            log.logError("Unsupported private key algorithm.");
            log.logData("algorithmOid", v.alg.oid);
            return false;
    }
}

}  // namespace

int KeyTypeCode::of(KeyKind kind) {
    switch (kind) {
        case KeyKind::Rsa:
            return kRsa;
        case KeyKind::Dsa:
            return kDsa;
        case KeyKind::Ec:
            return kEcdsa;
        case KeyKind::Ed25519:
            return kEdDsa;
        default:
            return kUnknown;
    }
}

const CurveInfo* findCurve(const char* oidText) {
    if (!oidText) return nullptr;
    for (const CurveInfo& c : kCurves) {
        if (!strcmp(c.oid, oidText)) return &c;
    }
    return nullptr;
}

namespace keyder {

unsigned integerBits(DerInput c) {
    if (c.empty() || (c[0] & 0x80)) return 0;
    DerInput m = magnitude(c);
    if (m.empty()) return 0;
    unsigned bits = static_cast<unsigned>((m.size() - 1) * 8);
    for (unsigned char top = m[0]; top; top >>= 1) ++bits;
    return bits;
}

DerForm detectForm(DerInput der) {
    DerParser top(der);
    DerParser seq;
    if (!top.readSequence(&seq) || top.hasMore()) return DerForm::Unknown;
    unsigned tag = 0;
    if (!seq.peekTag(&tag)) return DerForm::Unknown;
    if (tag == der::kSequence) {
        if (!seq.skip() || !seq.peekTag(&tag)) return DerForm::Unknown;
        if (tag == der::kBitString) return DerForm::Spki;
        if (tag == der::kOctetString) return DerForm::EncryptedPkcs8;
        return DerForm::Unknown;
    }
    if (tag != der::kInteger || !seq.skip()) return DerForm::Unknown;
    if (!seq.peekTag(&tag)) return DerForm::Unknown;
    if (tag == der::kSequence) return DerForm::Pkcs8;
    if (tag == der::kOctetString) return DerForm::EcPrivate;
    if (tag != der::kInteger) return DerForm::Unknown;
    // Only INTEGERs from here on (a multi-prime RSA key ends with a SEQUENCE).
    int ints = 1;
    while (seq.nextIs(der::kInteger)) {
        if (!seq.skip()) return DerForm::Unknown;
        ++ints;
    }
    if (ints == 2 && !seq.hasMore()) return DerForm::RsaPublic;
    if (ints == 6 && !seq.hasMore()) return DerForm::DsaPrivate;
    if (ints == 9) return DerForm::RsaPrivate;
    return DerForm::Unknown;
}

bool parseSpki(DerInput der, SpkiView* out, LogBase& log) {
    DerParser top(der);
    DerElement whole;
    if (!top.readElement(der::kSequence, &whole) || top.hasMore())
        return logBad(log, "Invalid SubjectPublicKeyInfo.");
    DerParser seq(whole.contents);
    AlgId alg;
    DerInput bits;
    unsigned unused = 0;
    if (!readAlgId(seq, &alg) || !seq.readBitString(&bits, &unused) || unused != 0 || seq.hasMore())
        return logBad(log, "Invalid SubjectPublicKeyInfo.");
    out->whole = whole.whole;
    out->algId = alg.whole;
    out->params = alg.params;
    out->keyBits = bits;
    memcpy(out->oidText, alg.oid, sizeof out->oidText);
    out->kind = kindFromOid(alg.oid);
    return true;
}

bool spkiFacts(const SpkiView& spki, KeyFacts* out, LogBase& log) {
    out->kind = spki.kind;
    out->bits = 0;
    out->curveOid[0] = '\0';
    switch (spki.kind) {
        case KeyKind::Rsa: {
            DerInput n, e;
            if (!readRsaPublic(spki.keyBits, &n, &e)) return logBad(log, "Invalid RSA public key.");
            out->bits = integerBits(n);
            return true;
        }
        case KeyKind::Dsa: {
            DerParser p(spki.keyBits);
            DerInput y;
            if (!p.readIntegerBytes(&y) || p.hasMore() || !isPositiveInteger(y))
                return logBad(log, "Invalid DSA public key.");
            // Parameters may be inherited from the issuer (RFC 3279); the size is
            // then unknown here.
            if (!spki.params.empty() && !dsaParamBits(spki.params, &out->bits))
                return logBad(log, "Invalid DSA parameters.");
            return true;
        }
        case KeyKind::Ec: {
            if (spki.params.empty()) return logBad(log, "The EC key does not name its curve.");
            if (!namedCurve(spki.params, out->curveOid, sizeof out->curveOid, log)) return false;
            out->bits = curveBits(out->curveOid, log);
            if (!out->bits) return false;
            const CurveInfo* c = findCurve(out->curveOid);
            const DerInput& pt = spki.keyBits;
            if (pt.empty()) return logBad(log, "Invalid EC public key.");
            if (c) {
                const size_t want =
                    (pt[0] == 0x02 || pt[0] == 0x03) ? 1 + c->fieldBytes : 1 + 2 * c->fieldBytes;
                if (pt[0] < 0x02 || pt[0] > 0x07 || pt[0] == 0x05 || pt.size() != want)
                    return logBad(log, "Invalid EC public key.");
            }
            return true;
        }
        case KeyKind::Ed25519:
            if (spki.keyBits.size() != 32) return logBad(log, "Invalid Ed25519 public key.");
            out->bits = 256;
            return true;
        case KeyKind::Ed448:
            if (spki.keyBits.size() != 57) return logBad(log, "Invalid Ed448 public key.");
            out->bits = 448;
            return true;
        default:
            return true;
    }
}

bool keyIdInput(const SpkiView& spki, DataBuffer& out, LogBase& log) {
    auto label = [&out](const char* s) {
        return out.append(s, static_cast<unsigned>(strlen(s) + 1));
    };
    auto put = [&out](DerInput d) { return out.append(d.data(), static_cast<unsigned>(d.size())); };
    switch (spki.kind) {
        case KeyKind::Rsa: {
            DerInput n, e;
            if (!readRsaPublic(spki.keyBits, &n, &e)) return logBad(log, "Invalid RSA public key.");
            return label("rsa") && put(magnitude(n));
        }
        case KeyKind::Dsa: {
            DerParser p(spki.keyBits);
            DerInput y;
            if (!p.readIntegerBytes(&y) || p.hasMore())
                return logBad(log, "Invalid DSA public key.");
            return label("dsa") && put(magnitude(y));
        }
        case KeyKind::Ec: {
            char curve[40];
            if (spki.params.empty()) return logBad(log, "The EC key does not name its curve.");
            if (!namedCurve(spki.params, curve, sizeof curve, log)) return false;
            DerParser pp(spki.params);
            DerInput curveOid;
            if (!pp.readOid(&curveOid) || spki.keyBits.empty())
                return logBad(log, "Invalid EC public key.");
            if (!label("ec") || !put(curveOid)) return false;
            if (spki.keyBits[0] == 0x04) return put(spki.keyBits);
            // Compressed (or hybrid) points are rare enough to leave to OpenSSL.
            return keyossl::uncompressedPoint(curve, spki.keyBits, out, log);
        }
        case KeyKind::Ed25519:
            return label("ed25519") && put(spki.keyBits);
        case KeyKind::Ed448:
            return label("ed448") && put(spki.keyBits);
        default: {
            DerParser ap(spki.algId);
            DerParser alg;
            DerInput oid;
            if (!ap.readSequence(&alg) || !alg.readOid(&oid))
                return logBad(log, "Invalid SubjectPublicKeyInfo.");
            return label("spki") && put(oid) && put(spki.keyBits);
        }
    }
}

bool keyId64(DerInput spkiDer, StringBuffer& out, LogBase& log) {
    SpkiView spki;
    if (!parseSpki(spkiDer, &spki, log)) return false;
    DataBuffer input, digest;
    if (!keyIdInput(spki, input, log)) return false;
    if (!_ovHash::doHash(input.getData2(), input.getSize(), ovhash::kSha256, digest) ||
        digest.getSize() < 8)
        return logBad(log, "Failed to hash the public key.");
    return out.appendHex(digest.getData2(), 8, false);
}

namespace {

SameKey sameIf(bool equal) {
    return equal ? SameKey::Yes : SameKey::No;
}

bool sameMagnitude(DerInput a, DerInput b) {
    return magnitude(a).equals(magnitude(b));
}

// SEC 1 points: 04||X||Y uncompressed, 02/03||X compressed (the low bit of the
// prefix is Y's parity), 06/07||X||Y hybrid.
SameKey sameEcPoint(DerInput a, DerInput b) {
    if (a.equals(b)) return SameKey::Yes;
    if (a.empty() || b.empty()) return SameKey::No;
    if (a[0] == 0x04 && (b[0] == 0x02 || b[0] == 0x03)) std::swap(a, b);
    const bool aCompressed = a[0] == 0x02 || a[0] == 0x03;
    if (aCompressed && b[0] == 0x04) {
        const size_t field = a.size() - 1;
        if (b.size() != 1 + 2 * field) return SameKey::No;
        const bool yOdd = b[b.size() - 1] & 1;
        return sameIf(b.sub(1, field).equals(a.sub(1, field)) && yOdd == (a[0] == 0x03));
    }
    const auto hybrid = [](DerInput p) { return p[0] == 0x06 || p[0] == 0x07; };
    return hybrid(a) || hybrid(b) ? SameKey::Undecided : SameKey::No;
}

}  // namespace

SameKey samePublicKey(const SpkiView& a, const SpkiView& b) {
    if (a.kind != b.kind) return SameKey::No;
    switch (a.kind) {
        case KeyKind::Rsa: {
            DerInput na, ea, nb, eb;
            if (!readRsaPublic(a.keyBits, &na, &ea) || !readRsaPublic(b.keyBits, &nb, &eb))
                return SameKey::Undecided;
            return sameIf(sameMagnitude(na, nb) && sameMagnitude(ea, eb));
        }
        case KeyKind::Ec:
            // Both name their curve (a loaded key always does); explicit
            // parameters never load.
            if (!a.params.equals(b.params)) return SameKey::No;
            return sameEcPoint(a.keyBits, b.keyBits);
        case KeyKind::Ed25519:
        case KeyKind::Ed448:
            return sameIf(a.keyBits.equals(b.keyBits));
        case KeyKind::Dsa: {
            DerParser pa(a.keyBits), pb(b.keyBits);
            DerInput ya, yb;
            if (!pa.readIntegerBytes(&ya) || !pb.readIntegerBytes(&yb)) return SameKey::Undecided;
            // Parameters inherited from the issuer are absent from one side.
            const bool paramsAgree =
                a.params.empty() || b.params.empty() || a.params.equals(b.params);
            return sameIf(paramsAgree && sameMagnitude(ya, yb));
        }
        default:
            return a.whole.equals(b.whole) ? SameKey::Yes : SameKey::Undecided;
    }
}

bool spkiFromRsaPublic(DerInput rsaPublicKey, DataBuffer& spki, LogBase& log) {
    DerInput n, e;
    if (!readRsaPublic(rsaPublicKey, &n, &e)) return logBad(log, "Invalid RSA public key.");
    return rsaSpki(DerInput(), n, e, spki);
}

bool normalisePrivate(DerForm form, DerInput der, DataBuffer& pkcs8, DataBuffer& spki,
                      LogBase& log) {
    switch (form) {
        case DerForm::Pkcs8:
            return normalisePkcs8(der, pkcs8, spki, log);
        case DerForm::RsaPrivate:
            return normaliseRsaPrivate(der, pkcs8, spki, log);
        case DerForm::EcPrivate:
            return normaliseSec1(der, pkcs8, spki, log);
        case DerForm::DsaPrivate:
            return normaliseDsaPrivate(der, pkcs8, spki, log);
        default:
            return logBad(log, "Not a private key.");
    }
}

bool traditionalFromPkcs8(DerInput pkcs8, DerInput spkiDer, DataBuffer& out, const char** pemLabel,
                          LogBase& log) {
    Pkcs8View v;
    if (!readPkcs8(pkcs8, &v)) return logBad(log, "Invalid PKCS#8 private key.");
    SpkiView spki;
    if (!parseSpki(spkiDer, &spki, log)) return false;
    if (!strcmp(v.alg.oid, keyoid::kRsaEncryption)) {
        *pemLabel = "RSA PRIVATE KEY";
        return out.append(v.privateKey.data(), static_cast<unsigned>(v.privateKey.size()));
    }
    if (!strcmp(v.alg.oid, keyoid::kEcPublicKey)) {
        Sec1 k;
        if (!readSec1(v.privateKey, &k)) return logBad(log, "Invalid EC private key.");
        DerInput params = v.alg.params.empty() ? k.params : v.alg.params;
        if (params.empty()) return logBad(log, "The EC private key does not name its curve.");
        DataBuffer body, pub;
        body.setSecure(true);
        if (!derbuild::smallInteger(body, 1) || !derbuild::tlv(body, der::kOctetString, k.d) ||
            !derbuild::tlv(body, der::contextConstructed(0), params) ||
            !derbuild::bitString(pub, spki.keyBits) ||
            !derbuild::tlv(body, der::contextConstructed(1), pub) ||
            !derbuild::tlv(out, der::kSequence, body))
            return false;
        *pemLabel = "EC PRIVATE KEY";
        return true;
    }
    if (!strcmp(v.alg.oid, keyoid::kDsa)) {
        DerParser pp(v.alg.params);
        DerParser pqg;
        DerInput p, q, g;
        DerParser xp(v.privateKey);
        DerInput x;
        if (!pp.readSequence(&pqg) || !pqg.readIntegerBytes(&p) || !pqg.readIntegerBytes(&q) ||
            !pqg.readIntegerBytes(&g) || !xp.readIntegerBytes(&x))
            return logBad(log, "Invalid DSA private key.");
        DerParser yp(spki.keyBits);
        DerInput y;
        if (!yp.readIntegerBytes(&y)) return logBad(log, "Invalid DSA public key.");
        DataBuffer body;
        body.setSecure(true);
        if (!derbuild::smallInteger(body, 0) || !derbuild::tlv(body, der::kInteger, p) ||
            !derbuild::tlv(body, der::kInteger, q) || !derbuild::tlv(body, der::kInteger, g) ||
            !derbuild::tlv(body, der::kInteger, y) || !derbuild::tlv(body, der::kInteger, x) ||
            !derbuild::tlv(out, der::kSequence, body))
            return false;
        *pemLabel = "DSA PRIVATE KEY";
        return true;
    }
    *pemLabel = "PRIVATE KEY";
    return out.append(pkcs8.data(), static_cast<unsigned>(pkcs8.size()));
}

}  // namespace keyder
