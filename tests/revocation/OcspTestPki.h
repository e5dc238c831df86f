// A small PKI made with the openssl command line for the OCSP tests: an EC
// root, leaves it issued (good and revoked in the responder's index, and an
// expired one the index does not know), the leaves naming a responder and a
// CRL on the discard port, where nothing answers, a delegated responder with
// id-kp-OCSPSigning, a CA-issued certificate without it, and a rogue root with
// the real root's name but another key. Responders are `openssl ocsp` on a
// loopback port.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "support/net/PeerProcess.h"
#include "support_common/TestUtil.h"

namespace ocsptest {

class Pki {
  public:
    Pki() {
        const char* script = R"(set -e
ec='-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes'
openssl req -x509 $ec -keyout ca.key -out ca.pem -subj /CN=Root -days 3650 \
  -addext basicConstraints=critical,CA:true
openssl req -x509 $ec -keyout rogue.key -out rogue.pem -subj /CN=Root -days 3650
printf 'extendedKeyUsage=OCSPSigning\n' > ocsp.ext
printf 'extendedKeyUsage=serverAuth\nauthorityInfoAccess=OCSP;URI:%s\ncrlDistributionPoints=URI:%s\n' \
  http://127.0.0.1:9/ocsp http://127.0.0.1:9/root.crl > tls.ext
for l in good:0xC0FFEE:tls revoked:0x1002:tls delegate:0x77:ocsp plain:0x78:tls; do
  n=${l%%:*}; r=${l#*:}
  openssl req $ec -keyout $n.key -out $n.csr -subj /CN=$n
  openssl x509 -req -CA ca.pem -CAkey ca.key -in $n.csr -out $n.pem -days 3650 \
    -set_serial ${r%:*} -extfile ${r#*:}.ext
done
printf '[ca]\ndefault_ca=d\n[d]\ndatabase=db.txt\nnew_certs_dir=.\ndefault_md=sha256\npolicy=p\nserial=serial\n[p]\ncommonName=supplied\n' > ca.cnf
: > db.txt; echo 3001 > serial
openssl req $ec -keyout expired.key -out expired.csr -subj /CN=expired
openssl ca -batch -config ca.cnf -cert ca.pem -keyfile ca.key -in expired.csr -out expired.pem \
  -startdate 20200101000000Z -enddate 20200102000000Z
printf 'V\t351231235959Z\t\tC0FFEE\tunknown\t/CN=good\n' > index.txt
printf 'R\t351231235959Z\t240101000000Z,keyCompromise\t1002\tunknown\t/CN=revoked\n' >> index.txt
)";
        ovtest::writeFile(m_dir.file("make.sh"), script);
        m_made = sh("sh make.sh");
    }
    bool made() const { return m_made; }
    const ovtest::TempDir& dir() const { return m_dir; }
    std::string file(const std::string& name) const { return m_dir.file(name); }

    bool sh(const std::string& cmd, std::string* out = nullptr) const {
        return ovtest::run("cd " + ovtest::shq(m_dir.path()) + " && " + cmd + " 2>&1", out) == 0;
    }

    // Starts a responder over the index signed by signer ("ca", "delegate",
    // ...) with extra options; returns its URL, or "" when it did not start.
    std::string startResponder(ovtest::PeerProcess& p, const std::string& signer,
                               const std::string& extra = "") const {
        std::string line;
        if (!p.start(m_dir.path(),
                     "openssl ocsp -port 0 -index index.txt -CA ca.pem -rsigner " + signer +
                         ".pem -rkey " + signer + ".key -nmin 10 -ignore_err " + extra + " 2>&1",
                     line) ||
            line.rfind("ACCEPT", 0) != 0)
            return "";
        return "http://127.0.0.1:" + std::to_string(std::stoi(line.substr(line.rfind(':') + 1)));
    }

  private:
    ovtest::TempDir m_dir;
    bool m_made = false;
};

// The one PKI of the test program, made on first use.
inline Pki& pki() {
    static Pki p;
    return p;
}

}  // namespace ocsptest
