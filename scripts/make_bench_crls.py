#!/usr/bin/env python3
"""Writes the large CRLs of the benchmarks into OUTDIR:

  crl_10k.der, crl_100k.der, crl_1m.der   v2 CRLs of 10 000, 100 000 and
                                          1 000 000 entries (about 38 bytes an
                                          entry, as large real CRLs have:
                                          18-byte serials, every tenth entry
                                          with a reason code), CRL number 1,
                                          signed with a fresh P-256 key
  crl_<n>.serial                          upper-case hex of a listed serial
                                          ten entries from the end

Usage: make_bench_crls.py OUTDIR [COUNT...]   (COUNT among 10k 100k 1m)

The entries go to the builder all at once: adding them one by one is
quadratic in the builder.
"""
import datetime
import os
import random
import sys

from cryptography import x509
from cryptography.hazmat.primitives import hashes
from cryptography.hazmat.primitives.asymmetric import ec
from cryptography.hazmat.primitives.serialization import Encoding
from cryptography.x509.oid import NameOID

SIZES = {"10k": 10_000, "100k": 100_000, "1m": 1_000_000}


def make(outdir, label, count):
    rng = random.Random(count)  # the same CRL on every run
    key = ec.generate_private_key(ec.SECP256R1())
    when = datetime.datetime(2024, 1, 1)
    reasons = [x509.ReasonFlags.key_compromise, x509.ReasonFlags.superseded,
               x509.ReasonFlags.cessation_of_operation]
    revoked = []
    serials = []
    for i in range(count):
        serial = rng.getrandbits(143) | (1 << 142)  # 18 bytes, positive
        b = x509.RevokedCertificateBuilder().serial_number(serial).revocation_date(
            when + datetime.timedelta(seconds=i))
        if i % 10 == 0:
            b = b.add_extension(x509.CRLReason(reasons[i % 3]), critical=False)
        revoked.append(b.build())
        serials.append(serial)
    issuer = x509.Name([x509.NameAttribute(NameOID.COUNTRY_NAME, "DE"),
                        x509.NameAttribute(NameOID.ORGANIZATION_NAME, "Orvane"),
                        x509.NameAttribute(NameOID.COMMON_NAME, "Orvane Bench CRL CA")])
    builder = x509.CertificateRevocationListBuilder(
        issuer_name=issuer, last_update=when, next_update=when + datetime.timedelta(days=7),
        extensions=[x509.Extension(x509.CRLNumber(1).oid, False, x509.CRLNumber(1))],
        revoked_certificates=revoked)
    crl = builder.sign(key, hashes.SHA256())
    path = os.path.join(outdir, "crl_%s.der" % label)
    with open(path + ".tmp", "wb") as f:
        f.write(crl.public_bytes(Encoding.DER))
    os.replace(path + ".tmp", path)
    with open(os.path.join(outdir, "crl_%s.serial" % label), "w") as f:
        f.write("%X\n" % serials[max(0, count - 10)])


def main():
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    outdir = sys.argv[1]
    os.makedirs(outdir, exist_ok=True)
    for label in sys.argv[2:] or SIZES:
        make(outdir, label, SIZES[label])
    return 0


if __name__ == "__main__":
    sys.exit(main())
