#!/usr/bin/env bash
# Makes an authority, keys of every kind with their certificates and PKCS#12 files in the current folder.
set -e
export OPENSSL_CONF=/dev/null
openssl req -x509 -newkey rsa:2048 -nodes -keyout ca.key -out ca.pem -days 3650 -subj "/C=PL/CN=CA" -config <(printf '[req]\ndistinguished_name=d\n[d]\n') -addext basicConstraints=critical,CA:true -addext keyUsage=keyCertSign,cRLSign 2>/dev/null
openssl req -x509 -newkey rsa:2048 -nodes -keyout ca2.key -out ca2.pem -days 3650 -subj "/C=PL/CN=CA2" -config <(printf '[req]\ndistinguished_name=d\n[d]\n') -addext basicConstraints=critical,CA:true 2>/dev/null
openssl pkcs12 -export -nokeys -in ca.pem -out roots.p12 -passout pass:
issue() { # name genopts
  openssl req -new -key $1.key -out $1.csr -subj "/C=PL/O=Test/CN=$1" -config <(printf '[req]\ndistinguished_name=d\n[d]\n') ${3:-}
  openssl x509 -req -in $1.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 700 -out $1.pem -extfile <(printf "keyUsage=$2\nsubjectKeyIdentifier=hash\nauthorityKeyIdentifier=keyid\nsubjectAltName=email:$1@example.org\n") 2>/dev/null
  openssl pkcs12 -export -inkey $1.key -in $1.pem -out $1.p12 -passout pass:haslo -name $1
  openssl x509 -in $1.pem -outform der -out $1.der
}
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out rsa.key 2>/dev/null; issue rsa digitalSignature,nonRepudiation,keyEncipherment
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out rsb.key 2>/dev/null; issue rsb digitalSignature,nonRepudiation,keyEncipherment
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out pss.key 2>/dev/null; issue pss digitalSignature
openssl genpkey -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048 -out psk.key 2>/dev/null; issue psk digitalSignature
openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out ec.key; issue ec digitalSignature,keyAgreement
openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-521 -out ec5.key; issue ec5 digitalSignature,keyAgreement
openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:brainpoolP384r1 -out bp.key; issue bp digitalSignature,keyAgreement
openssl dsaparam -out dsa.par 2048 2>/dev/null; openssl gendsa -out dsa.key dsa.par 2>/dev/null; issue dsa digitalSignature
printf haslo > pw; chmod 600 pw
