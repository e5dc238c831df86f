// OcspRequestEncoder: the DER OCSPRequest (RFC 6960) that a JSON description asks for.
#pragma once

class ClsJsonObject;
class DataBuffer;
class LogBase;

// The description, all values strings:
//
//   request[i].cert.hashAlg         "sha1", "sha256", "sha384" or "sha512" (any case)
//   request[i].cert.issuerNameHash  base64 of the digest of the issuer's name DER
//   request[i].cert.issuerKeyHash   base64 of the digest of the issuer's key bits
//   request[i].cert.serialNumber    hex of the serial INTEGER's content octets,
//                                   written back exactly as given (a positive
//                                   serial whose first byte is 0x80 or more needs
//                                   its leading 00)
//   extensions.ocspNonce            optional; base64 of the nonce extension's
//                                   value, itself a DER OCTET STRING of 1 to 32
//                                   octets (RFC 8954)
//
// "request" must be a non-empty array. Unknown members are ignored, except under
// "extensions", where every member asks for an extension and an unknown one
// fails rather than be dropped from the request unseen.
//
// The request is unsigned, version v1 (left out as the DEFAULT), with no
// requestor name. Each hash AlgorithmIdentifier carries NULL parameters: that is
// what the dominant clients send, responders that match CertIDs byte for byte
// expect it, and RFC 5754 requires receivers to accept it for SHA-2 too.
class OcspRequestEncoder {
  public:
    // Appends the DER request to out. False when the description lacks a member
    // or holds a bad value; one error line then names the member, as in
    // "Missing member in the OCSP request description: request[0].cert.hashAlg"
    // or "Bad value in the OCSP request description: ..." (with a "reason"
    // value), and out is unchanged.
    static bool encode(const ClsJsonObject& desc, DataBuffer& out, LogBase& log);
};
