#!/bin/sh
# Builds the certificate fixtures of the X.509 parser tests with the openssl
# command line. Keys are made fresh on every run; the tests compare with what
# openssl reports about these same files, so nothing depends on a key's value.
#
#   root.der           RSA 2048 root, self-signed (sha256WithRSAEncryption)
#   inter.der          EC P-384 intermediate signed by the root, pathlen 0
#   leaf_rsa.der       RSA 2048 leaf signed by the root (PKCS#1 v1.5): SAN with
#                      DNS, email, IP, URI; EKU; key usage; AKI/SKI; AIA with
#                      OCSP and CA issuers; two CRL distribution points (the
#                      first lists an LDAP URI before an HTTP one); policies;
#                      an unknown critical extension holding a UTF8String
#   leaf_pss.der       RSA 2048 leaf signed by the root with RSASSA-PSS
#   leaf_p256.der, leaf_p384.der, leaf_p521.der, leaf_ed25519.der,
#   leaf_ed448.der, leaf_dsa.der
#                      leaves of each key type signed by the intermediate;
#                      leaf_p256 carries all six common extended key usages
#   name_bmp.der       subject CN as a BMPString (non-ASCII)
#   name_utf8.der      subject CN and O as UTF8Strings (non-ASCII)
#   name_multi.der     a multi-valued RDN (CN + UID), DC components
#   name_escaped.der   values holding , + " \ # and edge spaces
#   time_2060.der      notAfter in 2060 (a GeneralizedTime)
#   expired.der        notAfter before notBefore, both in the past by now
#   serial_neg.der     negative serial (-0x1234)
#   serial_20.der      20-byte serial
#   serial_00ff.der    serial 255, encoded with a leading zero byte
#   v1.der             version 1, no extensions
#   chain.p7b          DER PKCS#7 of inter, leaf_p256 and root: the leaf in the middle
#   chain_ber.p7b      CMS signature streamed as BER (indefinite lengths)
set -eu
cd "$(dirname "$0")"
T=$(mktemp -d)
trap 'rm -rf "$T"' EXIT

cat >"$T/ext.cnf" <<'EOF'
[req]
distinguished_name = dn
string_mask = utf8only
[dn]
[bmp_req]
distinguished_name = dn
string_mask = pkix
[v3_root]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
[v3_inter]
basicConstraints = critical,CA:TRUE,pathlen:0
keyUsage = critical,keyCertSign,cRLSign,digitalSignature
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always
crlDistributionPoints = URI:http://crl.example.test/root.crl
[v3_leaf_rsa]
basicConstraints = CA:FALSE
keyUsage = critical,digitalSignature,keyEncipherment
extendedKeyUsage = serverAuth,clientAuth,1.3.6.1.4.1.55555.3
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always
subjectAltName = DNS:www.example.test,DNS:example.test,email:admin@example.test,IP:192.0.2.10,IP:2001:db8::1,URI:https://example.test/
authorityInfoAccess = OCSP;URI:http://ocsp.example.test/,caIssuers;URI:http://ca.example.test/root.cer
crlDistributionPoints = dp1,dp2
certificatePolicies = 2.23.140.1.2.2,1.3.6.1.4.1.55555.2.1
1.3.6.1.4.1.55555.1 = critical,ASN1:UTF8String:Orvane private
[dp1]
fullname = URI:ldap://ldap.example.test/cn=crl,URI:http://crl.example.test/a.crl
[dp2]
fullname = URI:http://crl2.example.test/b.crl
[v3_leaf]
basicConstraints = CA:FALSE
keyUsage = digitalSignature
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always
subjectAltName = DNS:leaf.example.test
authorityInfoAccess = OCSP;URI:http://ocsp.example.test/inter
[v3_leaf_all_eku]
basicConstraints = CA:FALSE
keyUsage = digitalSignature,keyAgreement
extendedKeyUsage = serverAuth,clientAuth,codeSigning,emailProtection,timeStamping,OCSPSigning
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always
subjectAltName = email:p256@example.test
[v3_plain]
subjectKeyIdentifier = hash
EOF

key() {  # key <file> <genpkey arguments...>
    f=$1
    shift
    openssl genpkey "$@" -out "$T/$f" 2>/dev/null
}

# sign <name> <subject> <issuer cert|self> <issuer key> <section> [x509 options...]
sign() {
    name=$1 subj=$2 ca=$3 cakey=$4 sect=$5
    shift 5
    cfg=req
    case "$name" in name_bmp) cfg=bmp_req ;; esac
    openssl req -new -config "$T/ext.cnf" -section "$cfg" -utf8 -key "$T/$name.key" \
        -subj "$subj" -out "$T/$name.csr"
    if [ "$ca" = self ]; then
        openssl x509 -req -in "$T/$name.csr" -signkey "$T/$name.key" \
            -extfile "$T/ext.cnf" -extensions "$sect" -outform DER -out "$name.der" "$@"
    else
        openssl x509 -req -in "$T/$name.csr" -CA "$ca" -CAkey "$T/$cakey" \
            -extfile "$T/ext.cnf" -extensions "$sect" -outform DER -out "$name.der" "$@"
    fi
}

key root.key -algorithm RSA -pkeyopt rsa_keygen_bits:2048
key inter.key -algorithm EC -pkeyopt ec_paramgen_curve:P-384
key leaf_rsa.key -algorithm RSA -pkeyopt rsa_keygen_bits:2048
key leaf_pss.key -algorithm RSA -pkeyopt rsa_keygen_bits:2048
key leaf_p256.key -algorithm EC -pkeyopt ec_paramgen_curve:P-256
key leaf_p384.key -algorithm EC -pkeyopt ec_paramgen_curve:P-384
key leaf_p521.key -algorithm EC -pkeyopt ec_paramgen_curve:P-521
key leaf_ed25519.key -algorithm ED25519
key leaf_ed448.key -algorithm ED448
openssl genpkey -genparam -algorithm DSA -pkeyopt dsa_paramgen_bits:2048 -out "$T/dsa.param" 2>/dev/null
openssl genpkey -paramfile "$T/dsa.param" -out "$T/leaf_dsa.key"
for n in name_bmp name_utf8 name_multi name_escaped time_2060 expired serial_neg serial_20 \
    serial_00ff v1; do
    key "$n.key" -algorithm EC -pkeyopt ec_paramgen_curve:P-256
done

sign root "/C=US/O=Orvane Test/OU=Roots/CN=Orvane Test Root CA" self root.key v3_root \
    -days 7300 -sha256 -set_serial 1
openssl x509 -inform DER -in root.der -out "$T/root.pem"
sign inter "/C=DE/O=Orvane Test/CN=Orvane Test EC Intermediate" "$T/root.pem" root.key v3_inter \
    -days 3650 -sha256 -set_serial 2
openssl x509 -inform DER -in inter.der -out "$T/inter.pem"

sign leaf_rsa "/C=US/ST=California/L=San Francisco/O=Orvane Test/OU=Web/OU=Ops/CN=www.example.test/emailAddress=admin@example.test/serialNumber=A1234" \
    "$T/root.pem" root.key v3_leaf_rsa -days 825 -sha256 -set_serial 0x1001
sign leaf_pss "/C=US/O=Orvane Test/CN=pss.example.test" "$T/root.pem" root.key v3_leaf \
    -days 825 -sha256 -set_serial 0x1002 -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:32
sign leaf_p256 "/C=FR/O=Orvane Test/CN=p256.example.test" "$T/inter.pem" inter.key v3_leaf_all_eku \
    -days 825 -sha256 -set_serial 0x2001
for n in p384 p521 ed25519 ed448 dsa; do
    sign "leaf_$n" "/C=FR/O=Orvane Test/CN=$n.example.test" "$T/inter.pem" inter.key v3_leaf \
        -days 825 -set_serial 0x2002
done

sign name_bmp "/C=DE/O=Orvane Test/CN=Grüße Ünïcödé ✓" self name_bmp.key v3_plain -days 30
sign name_utf8 "/C=JP/O=オルヴェイン/CN=Zoë Ñandú" self name_utf8.key v3_plain -days 30
sign name_multi "/DC=test/DC=example/O=Orvane Test/CN=Multi Valued+UID=jdoe" self name_multi.key \
    v3_plain -days 30
sign name_escaped "/C=US/O=Example, Inc./OU=R\+D \"Lab\"/OU=back\\\\slash;semi/CN=#hash <tag> = eq " \
    self name_escaped.key v3_plain -days 30
sign time_2060 "/O=Orvane Test/CN=Far Future" self time_2060.key v3_plain -days 12500
sign expired "/O=Orvane Test/CN=Expired" self expired.key v3_plain -days -1
sign serial_neg "/O=Orvane Test/CN=Negative Serial" self serial_neg.key v3_plain -days 30 \
    -set_serial -0x1234
sign serial_20 "/O=Orvane Test/CN=Long Serial" self serial_20.key v3_plain -days 30 \
    -set_serial 0x7F112233445566778899AABBCCDDEEFF00112233
sign serial_00ff "/O=Orvane Test/CN=Padded Serial" self serial_00ff.key v3_plain -days 30 \
    -set_serial 255
openssl req -new -config "$T/ext.cnf" -key "$T/v1.key" -subj "/O=Orvane Test/CN=Version One" \
    -out "$T/v1.csr"
openssl x509 -req -in "$T/v1.csr" -signkey "$T/v1.key" -days 30 -outform DER -out v1.der

# PKCS#7 bundles. The set order is intermediate, leaf, root, so the leaf is
# neither first nor last.
openssl x509 -inform DER -in leaf_p256.der -out "$T/leaf_p256.pem"
openssl crl2pkcs7 -nocrl -certfile "$T/inter.pem" -certfile "$T/leaf_p256.pem" \
    -certfile "$T/root.pem" -outform DER -out chain.p7b
cat "$T/inter.pem" "$T/root.pem" >"$T/extra.pem"
printf 'signed content\n' >"$T/content.txt"
openssl cms -sign -in "$T/content.txt" -signer "$T/leaf_p256.pem" -inkey "$T/leaf_p256.key" \
    -certfile "$T/extra.pem" -outform DER -stream -binary -out chain_ber.p7b
