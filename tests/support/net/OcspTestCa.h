// A small CA made with the openssl command line, for OCSP tests: an EC root,
// three leaves it issued, and the index.txt that `openssl ocsp` answers from
// (one leaf valid, one revoked, one it has never heard of).
#pragma once

#include <string>

namespace ovtest {

class OcspTestCa {
  public:
    explicit OcspTestCa(const std::string& dir) : m_dir(dir) {}

    // Creates ca.key, ca.pem, good.pem, revoked.pem, unknown.pem, index.txt.
    // False (with the reason in err) when the openssl command line fails.
    bool make(std::string& err);

    std::string path(const std::string& name) const { return m_dir + "/" + name; }

    // What openssl itself puts into a CertID for the leaf: the issuer name and
    // key hashes (base64) for the hash algorithm ("sha1", "sha256", ...), read
    // back from a request openssl made; and the serial INTEGER's content octets
    // (hex), cut from the leaf's DER at the offsets asn1parse reports.
    struct CertId {
        std::string nameHashB64;
        std::string keyHashB64;
        std::string serialHex;
    };
    bool certIdFor(const std::string& leaf, const std::string& alg, CertId& out,
                   std::string& err) const;

    // openssl's own request for the leaves, without a nonce; empty on failure.
    std::string opensslRequest(const std::string& leaves, const std::string& alg) const;

    static constexpr const char* kGoodSerial = "00C0FFEE";  // high bit: needs its 00
    static constexpr const char* kRevokedSerial = "1002";

  private:
    std::string m_dir;
};

}  // namespace ovtest
