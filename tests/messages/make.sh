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
  openssl pkcs12 -export -inkey $1.key -in $1.pem -out $1.p12 -passout pass:Haslo.12345 -name $1
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
printf Haslo.12345 > pw; chmod 600 pw
tsa() { # name authority extensions
  openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out $1.key 2>/dev/null
  openssl req -new -key $1.key -out $1.csr -subj /C=PL/CN=$1 -config <(printf '[req]\ndistinguished_name=d\n[d]\n')
  openssl x509 -req -in $1.csr -CA $2.pem -CAkey $2.key -CAcreateserial -days 700 -out $1.pem -extfile <(printf "keyUsage=critical,digitalSignature\n$3") 2>/dev/null
  printf "[tsa]\ndefault_tsa=d\n[d]\nserial=tsserial\ncrypto_device=builtin\nsigner_cert=$1.pem\ncerts=$2.pem\nsigner_key=$1.key\nsigner_digest=sha256\ndefault_policy=1.2.3\ndigests=sha256,sha384,sha512\ness_cert_id_alg=sha256\n" > $1.cnf
}
stamping='extendedKeyUsage=critical,timeStamping\n'
tsa tsa ca "$stamping"; tsa stranger ca2 "$stamping"; tsa loose ca 'extendedKeyUsage=timeStamping\n'
: > index; echo 01 > crlnumber; echo 01 > tsserial
printf '[ca]\ndefault_ca=d\n[d]\ndatabase=index\ncrlnumber=crlnumber\ncertificate=ca.pem\nprivate_key=ca.key\ndefault_md=sha256\ndefault_crl_days=30\ncrl_extensions=e\n[e]\nauthorityKeyIdentifier=keyid\n' > ca.cnf
for one in rsa ec tsa; do openssl ca -config ca.cnf -valid $one.pem 2>/dev/null; done
openssl ca -config ca.cnf -gencrl -out good.crl 2>/dev/null
