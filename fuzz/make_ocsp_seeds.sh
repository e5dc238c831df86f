#!/bin/sh
# Makes the seed corpus of the OCSP response reader (fuzz/corpus/ocsp) with the
# openssl command line: answers good, revoked (with a reason) and unknown,
# signed by the root by name and by key hash and by a delegated responder, and
# an error status.
set -e
out=$(cd "$(dirname "$0")" && pwd)/corpus/ocsp
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cd "$tmp"
ec='-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes'
openssl req -x509 $ec -keyout ca.key -out ca.pem -subj /CN=Root -days 3650 2>/dev/null
printf 'extendedKeyUsage=OCSPSigning\n' > ocsp.ext
for l in good:0xC0FFEE revoked:0x1002 unknown:0x2003 delegate:0x77; do
  n=${l%%:*}
  openssl req $ec -keyout $n.key -out $n.csr -subj /CN=$n 2>/dev/null
  openssl x509 -req -CA ca.pem -CAkey ca.key -in $n.csr -out $n.pem -days 3650 \
    -set_serial ${l#*:} -extfile ocsp.ext 2>/dev/null
done
printf 'V\t351231235959Z\t\tC0FFEE\tunknown\t/CN=good\n' > index.txt
printf 'R\t351231235959Z\t240101000000Z,keyCompromise\t1002\tunknown\t/CN=revoked\n' >> index.txt
mkdir -p "$out"
for c in good revoked unknown; do
  openssl ocsp -issuer ca.pem -cert $c.pem -reqout $c.req 2>/dev/null
  openssl ocsp -index index.txt -CA ca.pem -rsigner ca.pem -rkey ca.key -ndays 7 \
    -reqin $c.req -respout "$out/$c.der" 2>/dev/null
done
openssl ocsp -issuer ca.pem -cert good.pem -cert revoked.pem -cert unknown.pem -reqout all.req 2>/dev/null
openssl ocsp -index index.txt -CA ca.pem -rsigner delegate.pem -rkey delegate.key -resp_key_id \
  -reqin all.req -respout "$out/delegate-keyid-three.der" 2>/dev/null
printf '\060\003\012\001\003' > "$out/trylater.der"
