#!/bin/sh
# Makes the ASN.1 fixtures in this folder with the openssl command line:
#   cert.der         a leaf certificate with the usual extensions, a 20-byte
#                    serial and a subject whose CN is a BMPString
#   ext_*.der        the extnValue contents of each of its extensions
#   name_subject.der its subject Name
#   pkcs7_ber.der    a CMS SignedData streamed with indefinite lengths (BER)
#   crl.der          a v2 CRL with one revoked entry and CRL Number 5
#   crl_ext.der      that CRL's [0] crlExtensions
#   kitchen.der      a hand-written item using every type the renderer names
# The XML beside each is the renderer's output, checked by the tests; after
# running this script, run the asn1 tests with OV_UPDATE_GOLDEN=1 and review
# the differences before committing.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

cat > ca.cnf <<'CNF'
[req]
distinguished_name = dn
prompt = no
string_mask = pkix
utf8 = yes
[dn]
CN = Orvane Test CA
O = Orvane Test
C = DE
[ca_ext]
basicConstraints = critical, CA:true
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
[leaf_ext]
basicConstraints = CA:false
keyUsage = critical, digitalSignature, keyEncipherment
extendedKeyUsage = serverAuth, clientAuth
authorityInfoAccess = caIssuers;URI:http://127.0.0.1/ca.crt, OCSP;URI:http://127.0.0.1:8888/ocsp
crlDistributionPoints = crldp_ldap_then_http, crldp_http
subjectAltName = email:alice@example.com, DNS:www.example.com, URI:https://example.com/a?b=c&d=e
authorityKeyIdentifier = keyid
subjectKeyIdentifier = hash
# The first distribution point names an LDAP URL before an HTTP one.
[crldp_ldap_then_http]
fullname = URI:ldap://127.0.0.1/cn=ca?certificateRevocationList, URI:http://127.0.0.1/ca.crl
[crldp_http]
fullname = URI:http://127.0.0.1/second.crl
[ca]
default_ca = myca
[myca]
database = index.txt
crlnumber = crlnumber
default_md = sha256
default_crl_days = 30
crl_extensions = crl_ext
[crl_ext]
authorityKeyIdentifier = keyid
CNF

openssl req -x509 -new -newkey rsa:2048 -nodes -keyout ca.key -out ca.pem -days 3650 \
    -config ca.cnf -extensions ca_ext 2>/dev/null

# The leaf's CN holds characters outside PrintableString, so string_mask pkix
# makes it a BMPString.
openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout leaf.key \
    -out leaf.csr -config ca.cnf -utf8 \
    -subj "/CN=Zoë Ünicode €/O=Orvane <Test> & Co/C=DE/emailAddress=alice@example.com" 2>/dev/null
openssl x509 -req -in leaf.csr -CA ca.pem -CAkey ca.key -days 825 \
    -set_serial 0x7F3A19C2D4E5F60718293A4B5C6D7E8F90A1B2C3 \
    -extfile ca.cnf -extensions leaf_ext -outform DER -out "$here/cert.der" 2>/dev/null

# Cut an item out of cert.der: the OCTET STRING following the line of the
# named OBJECT (an extension's extnValue), or the item at a fixed depth.
parsed=$(openssl asn1parse -inform DER -in "$here/cert.der")
extract_ext() {  # $1 = object name as asn1parse prints it, $2 = output file
    off=$(printf '%s\n' "$parsed" | awk -v name="$1" '
        found && /OCTET STRING/ { sub(/:.*/, "", $1); print $1; exit }
        index($0, ":" name) { found = 1 }')
    openssl asn1parse -inform DER -in "$here/cert.der" -strparse "$off" -noout -out "$2"
}
extract_ext "X509v3 Key Usage" "$here/ext_keyusage.der"
extract_ext "X509v3 Extended Key Usage" "$here/ext_eku.der"
extract_ext "Authority Information Access" "$here/ext_aia.der"
extract_ext "X509v3 CRL Distribution Points" "$here/ext_crldp.der"
extract_ext "X509v3 Subject Alternative Name" "$here/ext_san.der"
extract_ext "X509v3 Authority Key Identifier" "$here/ext_aki.der"
# The subject Name is the sixth item of tbsCertificate (after version, serial,
# signature, issuer, validity): the second SEQUENCE at depth 2 after validity.
subj_off=$(printf '%s\n' "$parsed" | awk '
    /d=2/ { n++ } n == 6 { sub(/:.*/, "", $1); print $1; exit }')
openssl asn1parse -inform DER -in "$here/cert.der" -strparse "$subj_off" -noout \
    -out "$here/name_subject.der"

# CMS SignedData written in streaming mode uses indefinite lengths.
printf 'streamed content\n' > content.txt
openssl x509 -inform DER -in "$here/cert.der" -out leaf.pem
openssl cms -sign -in content.txt -signer leaf.pem -inkey leaf.key -outform DER -stream \
    -nodetach -out "$here/pkcs7_ber.der"

# A v2 CRL numbered 5 that revokes the leaf.
: > index.txt
printf '05\n' > crlnumber
openssl ca -config ca.cnf -cert ca.pem -keyfile ca.key -revoke leaf.pem 2>/dev/null
openssl ca -config ca.cnf -cert ca.pem -keyfile ca.key -gencrl -out crl.pem 2>/dev/null
openssl crl -in crl.pem -outform DER -out "$here/crl.der"
crlext_off=$(openssl asn1parse -inform DER -in "$here/crl.der" | awk '
    /d=2/ && /cont \[ 0 \]/ { sub(/:.*/, "", $1); print $1; exit }')
# -strparse wants a primitive or a SEQUENCE; take the [0] item's bytes whole.
hl=$(openssl asn1parse -inform DER -in "$here/crl.der" | awk -v off="$crlext_off" '
    { o = $1; sub(/:.*/, "", o) } o == off { for (i = 1; i <= NF; i++) if ($i ~ /^hl=/) { sub(/hl=/, "", $i); print $i } }')
len=$(openssl asn1parse -inform DER -in "$here/crl.der" | awk -v off="$crlext_off" '
    { o = $1; sub(/:.*/, "", o) } o == off { sub(/.* l= */, ""); sub(/ .*/, ""); print; exit }')
dd if="$here/crl.der" of="$here/crl_ext.der" bs=1 skip="$crlext_off" count=$((hl + len)) 2>/dev/null

# Every type the renderer names, plus the generic forms, in one item.
cat > kitchen.cnf <<'CNF'
asn1 = SEQUENCE:top
[top]
b1 = BOOLEAN:TRUE
b2 = BOOLEAN:FALSE
i1 = INTEGER:0
i2 = INTEGER:-129
i3 = INTEGER:0x00FF0102030405060708090A0B0C0D0E0F
e1 = ENUMERATED:3
bits = FORMAT:HEX,BITSTRING:A080
oct = FORMAT:HEX,OCTETSTRING:00FF10
nul = NULL
oid1 = OID:1.3.6.1.5.5.7.48.1
oid2 = OID:2.999.1234567890123
# Strings whose bytes matter are written as hex under an implicit universal tag.
u8 = IMPLICIT:12U,FORMAT:HEX,OCTETSTRING:636166C3A9203C6126623E
u8ctl = IMPLICIT:12U,FORMAT:HEX,OCTETSTRING:61016209630D0A64
p = PRINTABLESTRING:Acme Ltd.
platin1 = IMPLICIT:19U,FORMAT:HEX,OCTETSTRING:4DFC6C6C6572
t61 = IMPLICIT:20U,FORMAT:HEX,OCTETSTRING:4DFC6C6C6572
ia5 = IA5STRING:bob@example.com
num = NUMERICSTRING:0123 456
vis = VISIBLESTRING:visible
utc = UTCTIME:250102030405Z
gen = GENTIME:20500102030405Z
bmp = IMPLICIT:30U,FORMAT:HEX,OCTETSTRING:005A00EB20ACD83DDE00
univ = IMPLICIT:28U,FORMAT:HEX,OCTETSTRING:000000410000041600110000
gstr = IMPLICIT:27U,FORMAT:HEX,OCTETSTRING:414243
ctxp = IMPLICIT:6,IA5STRING:http://127.0.0.1/x
ctxc = EXPLICIT:0,SEQUENCE:inner
app = IMPLICIT:5A,OCTETSTRING:app
priv = IMPLICIT:33P,INTEGER:7
emptyseq = SEQUENCE:empty
set = SET:inner
[inner]
x = INTEGER:1
[empty]
CNF
openssl asn1parse -genconf kitchen.cnf -noout -out "$here/kitchen.der"
