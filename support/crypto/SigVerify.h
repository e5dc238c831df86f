// Signature verification for certificates, CRLs and other signed DER.
#pragma once

#include "support/asn1/DerReader.h"

class LogBase;

// Verifies that signature was made over signedData by the private key whose
// public key is spki (a SubjectPublicKeyInfo element), with the algorithm named
// by sigAlgId (the whole AlgorithmIdentifier SEQUENCE element). signature is the
// BIT STRING content without its unused-bits byte.
//
// Accepted: RSA PKCS#1 v1.5 with SHA-1, SHA-224, SHA-256, SHA-384, SHA-512 and
// SHA3-224..512; RSA-PSS with any of the SHA-1/SHA-2 digests for the message and
// MGF1, and its salt length; ECDSA with SHA-1, SHA-2 and SHA-3 digests; DSA with
// SHA-1, SHA-224, SHA-256; Ed25519; Ed448. MD2 and MD5 signatures are refused
// (collisions are practical). The key must be of the algorithm's type (an RSA-PSS
// restricted key only for RSA-PSS).
//
// True only when the signature verifies. Every false has a logError line; an
// unknown algorithm is named by its OID in that line.
bool ovVerifySignature(DerInput spki, DerInput sigAlgId, DerInput signedData, DerInput signature,
                       LogBase& log);
