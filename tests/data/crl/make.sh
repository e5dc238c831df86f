#!/bin/sh
# Builds the CRL fixtures with `openssl ca -gencrl`: one CA (ca.pem, key
# ca.key) that issued and revoked three certificates, and the CRLs it
# publishes. Keys are made fresh on every run; the tests read the serials,
# times and names that this script sets.
#
#   ca.pem / ca.der        the issuing CA, CN=Orvane Test CRL CA, O=Orvane, C=DE
#   other.der              a CA of the same name with another key (a CRL
#                          signed by ca.key does not verify with it)
#   v2.crl                 v2, three entries (serial 1001 keyCompromise,
#                          1002 superseded, 1003 no reason), CRL number 5,
#                          thisUpdate 2024-01-02T03:04:05Z,
#                          nextUpdate 2049-02-03T04:05:06Z
#   v2_empty.crl           v2 without entries, CRL number 6
#   v1.crl                 v1 (no version, no extensions), one entry 1001,
#                          thisUpdate 2024-01-02T03:04:05Z, nextUpdate
#                          2030-06-07T08:09:10Z
#   gentime.crl            v2, thisUpdate 2050-01-01T00:00:00Z (a
#                          GeneralizedTime), one entry
set -eu
cd "$(dirname "$0")"
T=$(mktemp -d)
trap 'rm -rf "$T"' EXIT

cat >"$T/ca.cnf" <<EOF
[ca]
default_ca = ca
[ca]
dir = $T
database = $T/index.txt
crlnumber = $T/crlnumber
new_certs_dir = $T
certificate = $T/ca.pem
private_key = $T/ca.key
default_md = sha256
default_days = 3650
policy = any
unique_subject = no
[any]
commonName = supplied
[crl_ext]
authorityKeyIdentifier = keyid:always
[req]
distinguished_name = dn
[dn]
[v3_ca]
basicConstraints = critical,CA:true
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
EOF

openssl req -x509 -newkey rsa:2048 -nodes -keyout "$T/ca.key" -out "$T/ca.pem" -days 7300 \
  -subj "/C=DE/O=Orvane/CN=Orvane Test CRL CA" -config "$T/ca.cnf" -extensions v3_ca 2>/dev/null
openssl req -x509 -newkey rsa:2048 -nodes -keyout "$T/other.key" -out "$T/other.pem" -days 7300 \
  -subj "/C=DE/O=Orvane/CN=Orvane Test CRL CA" -config "$T/ca.cnf" -extensions v3_ca 2>/dev/null
cp "$T/ca.pem" ca.pem
openssl x509 -in ca.pem -outform DER -out ca.der
openssl x509 -in "$T/other.pem" -outform DER -out other.der

# The CA's database, written directly: three revoked certificates.
index() {
  : >"$T/index.txt"
  for line in "$@"; do printf '%s\n' "$line" >>"$T/index.txt"; done
}
R1="R	300101000000Z	240101000000Z,keyCompromise	1001	unknown	/CN=one"
R2="R	300101000000Z	240101000100Z,superseded	1002	unknown	/CN=two"
R3="R	300101000000Z	240101000200Z	1003	unknown	/CN=three"
R1PLAIN="R	300101000000Z	240101000000Z	1001	unknown	/CN=one"

# Without a crlnumber line and CRL extensions, and with no entry extension,
# openssl writes a version 1 CRL.
grep -v '^crlnumber' "$T/ca.cnf" >"$T/v1.cnf"

gencrl() {  # config out lastupdate nextupdate [extra args]
  cnf=$1 out=$2 last=$3 next=$4
  shift 4
  openssl ca -batch -config "$T/$cnf" -gencrl -crl_lastupdate "$last" -crl_nextupdate "$next" \
    "$@" -out "$T/out.pem" 2>/dev/null
  openssl crl -in "$T/out.pem" -outform DER -out "$out"
}

index "$R1" "$R2" "$R3"
echo 05 >"$T/crlnumber"
gencrl ca.cnf v2.crl 240102030405Z 490203040506Z -crlexts crl_ext

index
echo 06 >"$T/crlnumber"
gencrl ca.cnf v2_empty.crl 240102030405Z 490203040506Z -crlexts crl_ext

index "$R1PLAIN"
gencrl v1.cnf v1.crl 240102030405Z 300607080910Z

index "$R1"
echo 07 >"$T/crlnumber"
gencrl ca.cnf gentime.crl 20500101000000Z 20510101000000Z -crlexts crl_ext
