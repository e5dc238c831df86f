// The few key operations that need OpenSSL's arithmetic or decoders: building an
// EVP_PKEY for a cryptographic operation, computing a public key that a private
// key file left out, decompressing an EC point, and decrypting private keys.
#pragma once

#include "support/asn1/DerReader.h"
#include "support/crypto/OsslPtr.h"

class DataBuffer;
class LogBase;

namespace keyossl {

// An EVP_PKEY from an SPKI / a PKCS#8 PrivateKeyInfo; null, with a log line, when
// OpenSSL refuses the bytes.
ossl::PkeyPtr fromSpki(DerInput spki, LogBase& log);
ossl::PkeyPtr fromPkcs8(DerInput pkcs8, LogBase& log);

// Appends the key's SPKI / PKCS#8 encoding. The PKCS#8 bytes are secret: the
// caller marks out secure beforehand; OpenSSL's copy is wiped here.
bool appendSpki(EVP_PKEY* key, DataBuffer& out, LogBase& log);
bool appendPkcs8(EVP_PKEY* key, DataBuffer& out, LogBase& log);

// Appends the uncompressed form (04 || X || Y) of an encoded point on the named
// curve (dotted OID). False when OpenSSL does not know the curve or the point is
// not on it.
bool uncompressedPoint(const char* curveOid, DerInput point, DataBuffer& out, LogBase& log);

// Degree of a named curve that OpenSSL knows; false otherwise.
bool curveBits(const char* curveOid, unsigned* bits);

// Decrypts a PEM private key block (an "ENCRYPTED PRIVATE KEY", or a traditional
// block with Proc-Type and DEK-Info headers) and appends its PKCS#8 DER to out,
// which the caller marks secure. False on a wrong password or a damaged block.
bool decryptPemToPkcs8(const char* pem, unsigned n, const char* password, DataBuffer& out,
                       LogBase& log);

// The same for a DER EncryptedPrivateKeyInfo.
bool decryptDerToPkcs8(DerInput der, const char* password, DataBuffer& out, LogBase& log);

// Writes the queued OpenSSL error texts to the log and empties the queue.
void logErrors(LogBase& log);

}  // namespace keyossl
