#!/bin/sh
# Regenerates the key and certificate fixtures of the crypto tests with the
# openssl command line. Keys are PKCS#8 PEM; the tests derive every other
# encoding from them at run time, with the same tool, so that each conversion
# is checked against an independent encoder.
set -eu
cd "$(dirname "$0")"
rm -f ./*.pem

key() { # name genpkey-arguments...
    name=$1
    shift
    openssl genpkey "$@" -out "$name.key.pem"
}

key rsa2048 -algorithm RSA -pkeyopt rsa_keygen_bits:2048
# An odd size: the modulus has a high byte below 0x80, so no sign padding.
key rsa2047 -algorithm RSA -pkeyopt rsa_keygen_bits:2047
key rsa1024 -algorithm RSA -pkeyopt rsa_keygen_bits:1024
key rsapss2048 -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048
key p256 -algorithm EC -pkeyopt ec_paramgen_curve:P-256
key p384 -algorithm EC -pkeyopt ec_paramgen_curve:P-384
key p521 -algorithm EC -pkeyopt ec_paramgen_curve:P-521
key secp256k1 -algorithm EC -pkeyopt ec_paramgen_curve:secp256k1
key ed25519 -algorithm ED25519
key ed448 -algorithm ED448
openssl genpkey -genparam -algorithm DSA -pkeyopt dsa_paramgen_bits:2048 \
    -pkeyopt dsa_paramgen_q_bits:256 -out dsa.params.pem
key dsa2048 -paramfile dsa.params.pem
openssl genpkey -genparam -algorithm DSA -pkeyopt dsa_paramgen_bits:1024 \
    -pkeyopt dsa_paramgen_q_bits:160 -out dsa1024.params.pem
key dsa1024 -paramfile dsa1024.params.pem
rm -f dsa.params.pem dsa1024.params.pem

# Self-signed certificates, one per key type, with the default digest.
for k in rsa2048 rsapss2048 p256 p384 p521 secp256k1 ed25519 ed448 dsa2048; do
    openssl req -x509 -new -key "$k.key.pem" -subj "/CN=self $k" -days 3650 \
        -out "$k.self.pem"
done

# Certificates issued by a CA. The issuer key and digest vary so that each
# signature algorithm appears once.
issue() { # out ca subject-key digest [extra x509 options...]
    out=$1 ca=$2 subj=$3 md=$4
    shift 4
    openssl req -new -key "$subj.key.pem" -subj "/CN=$out" -out "$out.csr"
    openssl x509 -req -in "$out.csr" -CA "$ca.self.pem" -CAkey "$ca.key.pem" \
        -set_serial 0x$(openssl rand -hex 8) -days 3650 "-$md" "$@" -out "$out.pem"
    rm -f "$out.csr"
}
issue rsa-sha1 rsa2048 p256 sha1
issue rsa-sha224 rsa2048 p256 sha224
issue rsa-sha256 rsa2048 ed25519 sha256
issue rsa-sha384 rsa2048 rsa1024 sha384
issue rsa-sha512 rsa2048 rsa2047 sha512
issue rsa-pss-sha256 rsa2048 p256 sha256 -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:32
issue rsa-pss-sha512 rsa2048 ed448 sha512 -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:max \
    -sigopt rsa_mgf1_md:sha256
issue pss-key-sha256 rsapss2048 p256 sha256
issue ecdsa-sha1 p256 rsa2048 sha1
issue ecdsa-sha256 p256 rsa2048 sha256
issue ecdsa-sha384 p384 p256 sha384
issue ecdsa-sha512 p521 p384 sha512
issue ecdsa-k1-sha256 secp256k1 p256 sha256
issue ed25519-signed ed25519 rsa2048 sha256
issue ed448-signed ed448 p256 sha256
issue dsa-sha256 dsa2048 rsa2048 sha256
issue dsa-sha1 dsa2048 p256 sha1
# PSS with every parameter at its default: the parameters are an empty SEQUENCE.
issue rsa-pss-sha1 rsa2048 p256 sha1 -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:20
# MD5 signatures are refused on purpose; this one shows that they are.
issue rsa-md5 rsa2048 p256 md5
