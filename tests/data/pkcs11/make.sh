#!/bin/sh
# Keys and certificates for the token tests. Every file is DER.
#   <name>.key.der   PKCS#8 private key (imported into the test token)
#   <name>.pub.der   SubjectPublicKeyInfo (imported as the public-key object)
#   <name>.cert.der  self-signed certificate for the key
# The test token (a SoftHSM2 token made per test run) receives:
#   rsa_cert   key + certificate, ID a1        -> found through the certificate object
#   rsa_key    key only, ID b1                 -> found by modulus
#   ec256_key  key + public key, ID c1         -> found by EC point on the public key;
#                                                 the tests clear the key's CKA_SIGN
#   orphan     certificate only, ID f1         -> the certificate object has no key
#   stranger   nothing                         -> no key on the token
# dsa.cert.der, ec256c.cert.der (compressed point) and ec521.cert.der serve
# the certificate key parser only.
set -e
cd "$(dirname "$0")"
DAYS=36500

mk() { # name, genpkey args...
    name=$1; shift
    openssl genpkey "$@" -outform DER -out "$name.key.der"
    openssl pkey -inform DER -in "$name.key.der" -pubout -outform DER -out "$name.pub.der"
    openssl req -new -x509 -days $DAYS -subj "/CN=$name" -key "$name.key.der" -keyform DER \
        -outform DER -out "$name.cert.der"
}

mk rsa_cert -algorithm RSA -pkeyopt rsa_keygen_bits:2048
mk rsa_key -algorithm RSA -pkeyopt rsa_keygen_bits:2048
mk ec256_key -algorithm EC -pkeyopt ec_paramgen_curve:P-256
mk ec521 -algorithm EC -pkeyopt ec_paramgen_curve:P-521
mk orphan -algorithm RSA -pkeyopt rsa_keygen_bits:2048
mk stranger -algorithm RSA -pkeyopt rsa_keygen_bits:2048
mk ed25519 -algorithm ED25519

# A P-256 key whose certificate carries the compressed point.
openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 |
    openssl ec -conv_form compressed -outform DER -out ec256c.key.der 2>/dev/null
openssl req -new -x509 -days $DAYS -subj "/CN=ec256c" -key ec256c.key.der -keyform DER \
    -outform DER -out ec256c.cert.der

# DSA with a 256-bit q: signatures of 2 * 32 bytes.
openssl genpkey -genparam -algorithm DSA -pkeyopt dsa_paramgen_bits:2048 \
    -pkeyopt dsa_paramgen_q_bits:256 -out dsa.params.pem 2>/dev/null
mk dsa -paramfile dsa.params.pem
# Keep only what the tests read.
rm -f dsa.params.pem ec256c.key.der ec521.key.der ec521.pub.der dsa.key.der dsa.pub.der \
    ed25519.key.der ed25519.pub.der orphan.key.der orphan.pub.der stranger.key.der \
    stranger.pub.der rsa_cert.pub.der rsa_key.pub.der
