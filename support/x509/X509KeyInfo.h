// X509KeyInfo: key type and size read from a SubjectPublicKeyInfo, without
// building a key object.
#pragma once

#include "support/asn1/DerReader.h"
#include "support/crypto/KeyDer.h"

class X509KeyInfo : public KeyTypeCode {
  public:
    // Reads a whole SubjectPublicKeyInfo element. Sizes: RSA and DSA the bit
    // length of the modulus / prime p; EC the curve's field size (a curve we do
    // not know: 4 * (point length - 1) for an uncompressed point); Ed25519 256
    // and Ed448 448 (kUnknown: the EdDSA code stands for Ed25519 alone), as the
    // key container reports them. Types we do not know give kUnknown with 0
    // bits and true. False on a malformed SPKI.
    static bool typeAndBits(DerInput spki, int* keyType, unsigned* bits);
};
