// Arbitrary bytes into the CRL load, then every grammar question of it.
// Invariants: a failed load logs its error number and leaves the object
// empty; the serial of every entry the cursor reads is found listed, with a
// date; a second load of the same bytes answers as the first.
#include <cstdlib>
#include <string>

#include "revocation/OvCrl.h"
#include "revocation/TbsCertList.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    DataBuffer der;
    if (!der.append(data, static_cast<unsigned>(size))) return 0;
    LogTree log;
    _ovCrl crl;
    if (!crl.loadCrlDer(der, log)) {
        std::string num;
        if (!log.findData("errorNum", num) || crl.isLoaded() || !crl.getDer().isEmpty() ||
            !crl.getThisUpdate().isEmpty() || !crl.getIssuerDn().isEmpty() || crl.getCrlNumber())
            abort();
        return 0;
    }
    uint64_t count = 0;
    StringBuffer next;
    crl.getEntryCount(count);
    crl.getNextUpdate(next);

    // Look up the serial of every entry (capped) and a few that are not there.
    crlgrammar::CertificateList cl;
    if (crl.readStructure(cl)) {
        crlgrammar::RevokedCursor cur(cl.revoked);
        crlgrammar::RevokedEntry e;
        for (int i = 0; i < 64 && cur.next(&e); ++i) {
            CrlRevocation r;
            if (!crl.findSerial(e.serial.data(), static_cast<unsigned>(e.serial.size()), r) ||
                !r.listed)
                abort();
        }
    }
    const unsigned char probes[][3] = {{0, 0, 0}, {0x10, 0x01, 0}, {0xff, 0xff, 0xff}};
    for (const auto& p : probes) {
        CrlRevocation r;
        crl.findSerial(p, sizeof p, r);
    }

    _ovCrl again;
    LogNull quiet;
    if (!again.loadCrlDer(der, quiet) || again.getCrlNumber() != crl.getCrlNumber() ||
        !again.getThisUpdate().equals(crl.getThisUpdate()))
        abort();
    return 0;
}
