#!/usr/bin/env bash
# Makes the certificate-object fixtures with the openssl command line.
# Run from anywhere; writes into this folder. Valid for 100 years.
set -euo pipefail
cd "$(dirname "$0")"
rm -f *.pem *.der *.key *.txt *.json *.b64 *.p7b *.cnf *.srl

cat > ext.cnf <<'CNF'
[ca]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
[leaf]
basicConstraints = CA:FALSE
keyUsage = critical, digitalSignature, keyEncipherment
extendedKeyUsage = serverAuth, clientAuth
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
subjectAltName = DNS:leaf.example.test, email:leaf@example.test
CNF

days=36500
openssl req -x509 -newkey rsa:2048 -nodes -keyout root.key -out root.pem -days $days \
  -subj "/C=US/O=Orvane Test/CN=Orvane Test Root" -extensions ca -config <(cat ext.cnf; printf '[req]\ndistinguished_name=dn\n[dn]\n') 2>/dev/null
openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout inter.key -out inter.csr \
  -subj "/C=US/O=Orvane Test/CN=Orvane Test Intermediate" 2>/dev/null
openssl x509 -req -in inter.csr -CA root.pem -CAkey root.key -set_serial 0x1001 -days $days \
  -extfile ext.cnf -extensions ca -out inter.pem 2>/dev/null

leaf() {  # leaf NAME KEYGEN-ARGS...
  local name=$1; shift
  openssl req -newkey "$@" -nodes -keyout "$name.key" -out "$name.csr" \
    -subj "/C=DE/O=Orvane Test/CN=$name.example.test" 2>/dev/null
  openssl x509 -req -in "$name.csr" -CA inter.pem -CAkey inter.key -set_serial "0x$(openssl rand -hex 8)" \
    -days $days -extfile ext.cnf -extensions leaf -out "$name.pem" 2>/dev/null
  rm -f "$name.csr"
}
leaf rsa rsa:2048
leaf ec ec -pkeyopt ec_paramgen_curve:P-256
leaf ed25519 ed25519
rm -f inter.csr

for n in root inter rsa ec ed25519; do openssl x509 -in $n.pem -outform DER -out $n.der; done

# Chains: leaf + key + intermediate + root, in different orders.
cat rsa.pem rsa.key inter.pem root.pem > chain-leaf-first.pem
cat inter.pem root.pem rsa.key rsa.pem > chain-key-middle.pem
cat rsa.key root.pem rsa.pem inter.pem > chain-key-first.pem
cat inter.pem root.pem ec.pem > chain-no-key.pem
# A traditional (SEC1) EC key and a compressed-point PKCS#8 encoding of the same key.
openssl ec -in ec.key -out ec-sec1.key 2>/dev/null
cat ec.pem ec-sec1.key > ec-with-sec1-key.pem
# Encrypted PKCS#8 key with password "secret".
openssl pkcs8 -topk8 -in rsa.key -passout pass:secret -out rsa-enc.key 2>/dev/null
cat rsa.pem rsa-enc.key inter.pem > chain-encrypted-key.pem

# PKCS#7 of the chain in a shuffled order, PEM and DER.
openssl crl2pkcs7 -nocrl -certfile root.pem -certfile ec.pem -certfile inter.pem -out chain.p7b
openssl crl2pkcs7 -nocrl -certfile root.pem -certfile ec.pem -certfile inter.pem -outform DER -out chain-p7.der

# Bare base64 of DER, UTF-16LE of that, and a JSON array of two base64 strings.
base64 -w 64 ec.der > ec.b64
iconv -f ASCII -t UTF-16LE ec.b64 > ec-utf16le.b64
printf '["%s","%s"]' "$(base64 -w 0 ec.der)" "$(base64 -w 0 rsa.der)" > ec-rsa.json
rm -f ext.cnf

# <name>.describe (kept: not removed above) is the descriptive JSON of each
# certificate; after making the certificates again, rewrite them with
#   OV_UPDATE_GOLDEN=1 build/ov_cert_tests --gtest_filter='CertDescribeJson.*'
# and check the serials and dates against `openssl x509 -serial -dates`.

# Two CAs that certify each other (each issued by the other), for issuer
# searches that could run into each other. The self-signed forms only sign.
cross() {  # cross NAME ISSUER
  openssl req -new -key "cross-$1.key" -subj "/O=Orvane Test/CN=Cross $1" -out "cross-$1.csr"
  openssl x509 -req -in "cross-$1.csr" -CA "cross-$2-self.pem" -CAkey "cross-$2.key" \
    -set_serial "0x$(openssl rand -hex 8)" -days $days -outform DER -out "cross-$1.der" 2>/dev/null
  rm -f "cross-$1.csr"
}
for n in a b; do
  openssl genpkey -algorithm ec -pkeyopt ec_paramgen_curve:P-256 -out "cross-$n.key"
  openssl req -x509 -key "cross-$n.key" -subj "/O=Orvane Test/CN=Cross $n" -days $days \
    -out "cross-$n-self.pem" 2>/dev/null
done
cross a b
cross b a
rm -f cross-*.key cross-*-self.pem
