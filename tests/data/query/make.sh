#!/bin/sh
# Certificates for the certificate query and public key tests, made with the
# openssl command line. Run from anywhere; writes next to this script. Keys are
# made in a scratch directory and thrown away: the tests need certificates only.
#
#   ca.pem            RSA 2048 root, C=NO, key usage keyCertSign+cRLSign, SKI
#   ca-de.pem         EC P-384 root, C=DE
#   rsa.pem           RSA 2048 leaf of ca: full subject (C=de lower case, ST, L,
#                     O, OU, CN, emailAddress, serialNumber), SAN rfc822Name and
#                     DNS, key usage digitalSignature+keyEncipherment, EKU
#                     serverAuth+clientAuth, SKI, AKI keyid, a 20-byte serial with
#                     its high bit set, notAfter after 2049 (GeneralizedTime)
#   ec256.pem         EC P-256 leaf of ca-de, C=US; EKU codeSigning+timeStamping;
#                     serial 255
#   ed25519.pem       Ed25519 leaf of ca, no country; EKU emailProtection; SAN
#                     rfc822Name; serial 256
#   dsa.pem           DSA 2048 leaf of ca, C=GB; all six known EKUs in reverse
#                     order; key usage digitalSignature+decipherOnly; serial -128
#   ed448.pem         Ed448 self-signed, C=IS; serial 0
#   eku-odd.pem       EC leaf of ca, C=CH with emailAddress; EKU 1.3.6.1.5.5.7.3.17 only
#   eku-unknown.pem   EC leaf of ca, C=EL; EKU 1.2.3.4.5 only
#   noext.pem         EC v1 leaf of ca (no extensions), C=UK with emailAddress
#   aki-issuer.pem    EC leaf of ca, C=LI; AKI with issuer and serial only
#   expired.pem       EC self-signed, C=AT, notAfter a day before notBefore
#   country-SK.pem    EC self-signed, C=SK (last entry of the EU table)
#   country-GR.pem    EC self-signed, C=GR
#   ec-explicit.pem   EC P-256 self-signed whose key carries explicit curve
#                     parameters instead of the curve's name (the key loader
#                     refuses those)
#   country-space.pem EC self-signed whose country is " DE" (leading space;
#                     openssl refuses that in -subj, so it is built with
#                     asn1parse -genconf and signed with dgst), serial -255,
#                     validity 2001-2002
set -eu
here=$(cd "$(dirname "$0")" && pwd)
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cd "$tmp"

ec() { openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:"$1" -out "$2" 2>/dev/null; }

# leaf <key> <subject> <ca> <serial> <days> <extensions or ""> <out>
leaf() {
    openssl req -new -key "$1" -subj "$2" -out leaf.csr
    if [ -n "$6" ]; then
        printf '%s\n' "$6" > ext.cnf
        openssl x509 -req -in leaf.csr -CA "$3.pem" -CAkey "$3.key" -set_serial "$4" \
            -days "$5" -sha256 -extfile ext.cnf -out "$7"
    else
        openssl x509 -req -in leaf.csr -CA "$3.pem" -CAkey "$3.key" -set_serial "$4" \
            -days "$5" -sha256 -out "$7"
    fi
}

openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out ca.key 2>/dev/null
openssl req -x509 -new -key ca.key -subj "/C=NO/O=Query Test CA/CN=Query Root CA" -days 3650 \
    -sha256 -set_serial 1 -out ca.pem \
    -addext "basicConstraints=critical,CA:TRUE" -addext "keyUsage=critical,keyCertSign,cRLSign" \
    -addext "subjectKeyIdentifier=hash"
ec P-384 ca-de.key
openssl req -x509 -new -key ca-de.key -subj "/C=DE/O=Query DE CA/CN=Query DE Root" -days 3650 \
    -sha384 -set_serial 2 -out ca-de.pem -addext "basicConstraints=critical,CA:TRUE"

openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out rsa.key 2>/dev/null
leaf rsa.key "/C=de/ST=Bayern/L=Muenchen/O=Example GmbH/OU=Dev/CN=rsa.example.de/emailAddress=alice@example.de/serialNumber=SN-4711" \
    ca 0x80112233445566778899AABBCCDDEEFF00112233 11000 \
    "keyUsage=critical,digitalSignature,keyEncipherment
extendedKeyUsage=serverAuth,clientAuth
subjectKeyIdentifier=hash
authorityKeyIdentifier=keyid
subjectAltName=email:alice@example.org,DNS:rsa.example.de" rsa.pem

ec P-256 ec256.key
leaf ec256.key "/C=US/O=Example Inc/CN=ec256.example.com" ca-de 255 30 \
    "keyUsage=digitalSignature
extendedKeyUsage=codeSigning,timeStamping" ec256.pem

openssl genpkey -algorithm ED25519 -out ed25519.key
leaf ed25519.key "/O=No Country Ltd/CN=ed25519.example" ca 256 365 \
    "keyUsage=digitalSignature,nonRepudiation
extendedKeyUsage=emailProtection
subjectAltName=email:bob@example.net" ed25519.pem

openssl genpkey -genparam -algorithm DSA -pkeyopt dsa_paramgen_bits:2048 -out dsa.param 2>/dev/null
openssl genpkey -paramfile dsa.param -out dsa.key
leaf dsa.key "/C=GB/CN=dsa.example.co.uk" ca -128 365 \
    "keyUsage=digitalSignature,decipherOnly
extendedKeyUsage=OCSPSigning,timeStamping,emailProtection,codeSigning,clientAuth,serverAuth" dsa.pem

openssl genpkey -algorithm ED448 -out ed448.key
openssl req -x509 -new -key ed448.key -subj "/C=IS/CN=ed448.example.is" -days 365 -set_serial 0 \
    -out ed448.pem

ec P-256 leaf.key
leaf leaf.key "/C=CH/CN=odd.example.ch/emailAddress=carol@example.ch" ca 3 365 \
    "extendedKeyUsage=1.3.6.1.5.5.7.3.17" eku-odd.pem
leaf leaf.key "/C=EL/CN=unknown-eku.example.gr" ca 4 365 "extendedKeyUsage=1.2.3.4.5" eku-unknown.pem
leaf leaf.key "/C=UK/CN=noext.example.uk/emailAddress=dave@example.uk" ca 5 365 "" noext.pem
leaf leaf.key "/C=LI/CN=aki.example.li" ca 6 365 "authorityKeyIdentifier=issuer:always" aki-issuer.pem

openssl req -x509 -new -key leaf.key -subj "/C=AT/CN=expired.example.at" -days 1 -set_serial 7 \
    -out expired0.pem
openssl x509 -in expired0.pem -signkey leaf.key -days -1 -out expired.pem 2>/dev/null
openssl ecparam -name prime256v1 -param_enc explicit -genkey -noout -out explicit.key
openssl req -x509 -new -key explicit.key -subj "/CN=explicit.example" -days 365 -set_serial 9 \
    -out ec-explicit.pem
for c in SK GR; do
    openssl req -x509 -new -key leaf.key -subj "/C=$c/CN=country.example" -days 365 -set_serial 8 \
        -out "country-$c.pem"
done

# A certificate openssl would not issue: country " DE". The TBS is built from
# the section below, signed, and wrapped with its signature.
pub=$(openssl pkey -in leaf.key -pubout -outform DER | tail -c 65 | xxd -p | tr -d '\n')
cat > tbs.cnf <<CNF
asn1=SEQUENCE:tbs
[tbs]
version=EXPLICIT:0C,INTEGER:2
serial=INTEGER:-255
sigalg=SEQUENCE:sigalg
issuer=SEQUENCE:name
validity=SEQUENCE:validity
subject=SEQUENCE:name
spki=SEQUENCE:spki
[sigalg]
alg=OID:ecdsa-with-SHA256
[name]
c=SET:rdn_c
cn=SET:rdn_cn
[rdn_c]
a=SEQUENCE:attr_c
[attr_c]
type=OID:countryName
value=PRINTABLESTRING:" DE"
[rdn_cn]
a=SEQUENCE:attr_cn
[attr_cn]
type=OID:commonName
value=UTF8:space.example.de
[validity]
from=UTCTIME:010101000000Z
to=UTCTIME:020101000000Z
[spki]
alg=SEQUENCE:spkialg
key=FORMAT:HEX,BITSTRING:$pub
[spkialg]
oid=OID:id-ecPublicKey
curve=OID:prime256v1
CNF
openssl asn1parse -genconf tbs.cnf -noout -out tbs.der
sig=$(openssl dgst -sha256 -sign leaf.key tbs.der | xxd -p | tr -d '\n')
{
    echo "asn1=SEQUENCE:cert"
    echo "[cert]"
    echo "tbs=SEQUENCE:tbs"
    echo "alg=SEQUENCE:sigalg"
    echo "sig=FORMAT:HEX,BITSTRING:$sig"
    sed 1d tbs.cnf
} > cert.cnf
openssl asn1parse -genconf cert.cnf -noout -out cert.der
openssl x509 -inform DER -in cert.der -out country-space.pem

for f in ca ca-de rsa ec256 ed25519 dsa ed448 eku-odd eku-unknown noext aki-issuer expired \
    ec-explicit country-SK country-GR country-space; do
    cp "$f.pem" "$here/$f.pem"
done
echo "made in $here"
