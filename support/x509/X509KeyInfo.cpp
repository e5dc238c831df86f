#include "support/x509/X509KeyInfo.h"

#include "support/base/LogBase.h"

namespace {

// The bit length of the first INTEGER of a SEQUENCE (RSA modulus, DSA p).
bool firstIntegerBits(DerInput seqElement, unsigned* bits) {
    DerParser outer(seqElement);
    DerParser seq;
    DerInput n;
    // Lenient: a modulus written with a superfluous 00 byte (not DER) still has
    // a size to report. This only describes the key and never computes with it;
    // the key container, which does, reads the modulus strictly.
    if (!outer.readSequence(&seq) || !seq.readIntegerBytesLenient(&n)) return false;
    *bits = keyder::integerBits(n);
    return true;
}

unsigned ecBits(const SpkiView& spki) {
    DerParser p(spki.params);
    DerInput oid;
    char dotted[40];
    const CurveInfo* curve = nullptr;
    if (p.readOid(&oid) && der::oidToText(oid, dotted, sizeof dotted)) curve = findCurve(dotted);
    if (curve) return curve->bits;
    // Explicit or unknown curves: an uncompressed point 04 || X || Y holds two
    // coordinates of the field size.
    const DerInput& pt = spki.keyBits;
    return pt.size() > 1 && pt[0] == 0x04 ? static_cast<unsigned>((pt.size() - 1) * 4) : 0;
}

}  // namespace

bool X509KeyInfo::typeAndBits(DerInput spkiDer, int* keyType, unsigned* bits) {
    *keyType = kUnknown;
    *bits = 0;
    LogNull quiet;
    SpkiView spki;
    if (!keyder::parseSpki(spkiDer, &spki, quiet)) return false;
    switch (spki.kind) {
        case KeyKind::Rsa:
            //   RSAPublicKey ::= SEQUENCE { modulus INTEGER, publicExponent INTEGER }
            if (!firstIntegerBits(spki.keyBits, bits)) return false;
            break;
        case KeyKind::Ec:
            *bits = ecBits(spki);
            break;
        case KeyKind::Dsa:
            //   Dss-Parms ::= SEQUENCE { p INTEGER, q INTEGER, g INTEGER }
            // Absent parameters are inherited from the issuer: size unknown.
            if (!spki.params.empty()) firstIntegerBits(spki.params, bits);
            break;
        case KeyKind::Ed25519:
            *bits = 256;
            break;
        case KeyKind::Ed448:
            *bits = 448;
            break;
        default:
            break;
    }
    *keyType = KeyTypeCode::of(spki.kind);
    return true;
}
