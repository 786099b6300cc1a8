#!/usr/bin/env bash
# Makes the files of this folder with openssl, certtool and pk12util. Run it by hand; the results are checked in.
set -euo pipefail
cd "$(dirname "$0")"
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
rm -f ./*.der ./*.pem ./*.p12 ./*.txt
export OPENSSL_CONF=$work/openssl.cnf
cat > "$OPENSSL_CONF" <<'CNF'
openssl_conf = top
[top]
providers = providers
[providers]
default = on
legacy = on
[on]
activate = 1
[req]
distinguished_name = dn
prompt = no
string_mask = utf8only
utf8 = yes
[dn]
C = PL
O = Próba
CN = Jan Kowalski
[exts]
keyUsage = critical,digitalSignature,nonRepudiation
subjectAltName = email:jan@example.org
[cav3]
basicConstraints = critical,CA:true
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
[ca]
default_ca = ca0
[ca0]
database = $ENV::CRVWORK/index
crlnumber = $ENV::CRVWORK/number
default_md = sha256
default_crl_days = 30
[crlfull]
authorityKeyIdentifier = keyid:always,issuer:always
crlNumber = DER:02:09:00:F0:01:02:03:04:05:06:07
issuingDistributionPoint = critical,@idp
[idp]
fullname = URI:http://crl.example.org/a.crl
indirectCRL = TRUE
onlysomereasons = keyCompromise,CACompromise
[crldelta]
authorityKeyIdentifier = keyid:always
2.5.29.27 = critical,ASN1:INTEGER:41
2.5.29.46 = ASN1:SEQUENCE:fresh
[fresh]
dp = SEQUENCE:dp
[dp]
name = EXPLICIT:0,SEQWRAP,IMPLICIT:0,SEQWRAP,IMPLICIT:6,IA5STRING:http://crl.example.org/d.crl
CNF
export CRVWORK=$work

key() { openssl genpkey -quiet "${@:2}" -out "$work/$1.pem"; openssl pkcs8 -topk8 -nocrypt -in "$work/$1.pem" -outform DER -out "key_$1.der"; }
key rsa -algorithm RSA -pkeyopt rsa_keygen_bits:2048
key pss -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048
openssl genpkey -quiet -genparam -algorithm DSA -pkeyopt dsa_paramgen_bits:1024 -out "$work/dsap.pem"
key dsa -paramfile "$work/dsap.pem"
key ec -algorithm EC -pkeyopt ec_paramgen_curve:P-256
key ecexplicit -algorithm EC -pkeyopt ec_paramgen_curve:P-384 -pkeyopt ec_param_enc:explicit
key ed25519 -algorithm ED25519
openssl rsa -traditional -in "$work/rsa.pem" -outform DER -out plain_rsa.der
openssl dsa -in "$work/dsa.pem" -outform DER -out plain_dsa.der
openssl ec -in "$work/ec.pem" -outform DER -out plain_ec.der
openssl ec -in "$work/ecexplicit.pem" -outform DER -out plain_ecexplicit.der

enc() { openssl pkcs8 -topk8 -in "$work/ec.pem" -passout pass:Zażółć1 -outform DER -out "enc_$1.der" "${@:2}"; }
enc aes256 -v2 aes-256-cbc -v2prf hmacWithSHA256
enc aes128 -v2 aes-128-cbc -v2prf hmacWithSHA1
enc aes192_sha512 -v2 aes-192-cbc -v2prf hmacWithSHA512
enc des3 -v2 des3
enc rc2_64 -v2 rc2-64-cbc
enc scrypt -scrypt
enc pbe3des -v1 PBE-SHA1-3DES
enc pbe40 -v1 PBE-SHA1-RC2-40
enc pbemd5des -v1 PBE-MD5-DES

for k in rsa pss dsa ec ecexplicit ed25519; do
  sha=-sha256; [ $k != ed25519 ] || sha=
  openssl req -new -key "$work/$k.pem" $sha -config "$OPENSSL_CONF" -reqexts exts -outform DER -out "req_$k.der"
  openssl req -x509 -new -key "$work/$k.pem" $sha -config "$OPENSSL_CONF" -extensions cav3 -days 7000 -out "$work/$k.crt"
done
openssl req -new -key "$work/rsa.pem" -sha256 -config "$OPENSSL_CONF" -out req_plain.pem
certtool --generate-request --load-privkey "$work/rsa.pem" --template <(printf 'cn = "Jan"\nchallenge_password = x\n') --outder --outfile req_certtool.der 2>/dev/null
openssl x509 -in "$work/rsa.crt" -outform DER -out crt_rsa.der
openssl x509 -in "$work/ec.crt" -outform DER -out crt_ec.der

pw=pass:Zażółć1
p12() { openssl pkcs12 -export -out "$1.p12" -passout "$pw" "${@:2}"; }
p12 pfx_openssl3 -inkey "$work/rsa.pem" -in "$work/rsa.crt" -name "Jan Kowalski ćwiczy"
p12 pfx_legacy -legacy -inkey "$work/rsa.pem" -in "$work/rsa.crt"
p12 pfx_3des -inkey "$work/ec.pem" -in "$work/ec.crt" -certfile "$work/rsa.crt" -caname Korzeń -keypbe PBE-SHA1-3DES -certpbe PBE-SHA1-3DES -macalg sha1 -iter 1000 -maciter
p12 pfx_nomaciter -inkey "$work/ec.pem" -in "$work/ec.crt" -keypbe PBE-SHA1-3DES -certpbe PBE-SHA1-3DES -macalg sha1 -nomaciter
p12 pfx_keybag -inkey "$work/dsa.pem" -in "$work/dsa.crt" -keypbe NONE -certpbe NONE
p12 pfx_nomac -inkey "$work/ec.pem" -in "$work/ec.crt" -nomac
p12 pfx_certs -nokeys -in "$work/rsa.crt" -certfile "$work/ec.crt" -macalg sha512
pw=pass: p12 pfx_empty -inkey "$work/ec.pem" -in "$work/ec.crt" -macalg sha1
certtool --to-p12 --load-privkey "$work/rsa.pem" --load-certificate "$work/rsa.crt" --p12-name 'Próba' --password 'Zażółć1' --outder --outfile pfx_certtool.p12 2>/dev/null
mkdir "$work/nss"; certutil -N -d "$work/nss" --empty-password
pk12util -i pfx_3des.p12 -d "$work/nss" -W 'Zażółć1' -K '' >/dev/null
nick=$(certutil -L -d "$work/nss" | sed -n 's/ *u,u,u$//p')
pk12util -o pfx_nss.p12 -n "$nick" -d "$work/nss" -W 'Zażółć1' -K '' >/dev/null
pk12util -o pfx_nss_old.p12 -n "$nick" -d "$work/nss" -W 'Zażółć1' -K '' -c "PKCS #12 V2 PBE With SHA-1 And 3KEY Triple DES-CBC" -C "PKCS #12 V2 PBE With SHA-1 And 40 Bit RC2 CBC" >/dev/null

printf 'treść podpisana' > content.txt
sign() { openssl cms -sign -binary -nosmimecap -in content.txt -signer "$work/$2.crt" -inkey "$work/$2.pem" -outform DER -out "$1.der" "${@:3}"; }
sign cms_rsa rsa -nodetach -md sha256
sign cms_detached rsa -md sha512 -keyid
sign cms_noattr rsa -nodetach -noattr -md sha1
sign cms_ec ec -nodetach -md sha384
sign cms_pss rsa -nodetach -md sha256 -keyopt rsa_padding_mode:pss
sign cms_dsa dsa -nodetach -md sha1
sign cms_stream rsa -nodetach -stream -md sha256
openssl crl2pkcs7 -nocrl -certfile "$work/rsa.crt" -certfile "$work/ec.crt" -certfile "$work/ed25519.crt" -outform DER -out p7_bundle.der
openssl crl2pkcs7 -nocrl -certfile "$work/rsa.crt" -certfile "$work/ec.crt" -out p7_bundle.pem
openssl cms -EncryptedData_encrypt -binary -aes-256-cbc -secretkey 000102030405060708090A0B0C0D0E0F000102030405060708090A0B0C0D0E0F -in content.txt -outform DER -out cms_encrypted.der
openssl cms -digest_create -binary -in content.txt -outform DER -out cms_digested.der
openssl cms -data_create -binary -in content.txt -outform DER -out cms_data.der
certtool --p7-sign --load-privkey "$work/rsa.pem" --load-certificate "$work/rsa.crt" --infile content.txt --outder --outfile cms_certtool.der 2>/dev/null

rows() { printf 'R\t400101000000Z\t2311%02d101500Z,%s\t%02X\tunknown\t/CN=%d\n' "$1" "$2" "$1" "$1"; }
{ rows 1 unspecified; rows 2 keyCompromise; rows 3 CACompromise; rows 4 affiliationChanged; rows 5 superseded
  rows 6 cessationOfOperation; rows 7 certificateHold; rows 8 removeFromCRL; rows 9 keyTime,20231109101500Z
  printf 'R\t400101000000Z\t231110101500Z\t00AABBCCDDEEFF001122\tunknown\t/CN=10\n'; } > "$work/index"
sed -i 's/,removeFromCRL//' "$work/index"
: > "$work/index.attr"
echo 0A > "$work/number"
crl() { openssl ca -gencrl -config "$OPENSSL_CONF" -cert "$work/$2.crt" -keyfile "$work/$2.pem" "${@:3}" 2>/dev/null | openssl crl -outform DER -out "crl_$1.der"; }
crl rsa rsa
crl full rsa -crlexts crlfull
crl delta ec -crlexts crldelta
crl pss rsa -sigopt rsa_padding_mode:pss
: > "$work/index"
crl empty ec
openssl ca -gencrl -config "$OPENSSL_CONF" -cert "$work/rsa.crt" -keyfile "$work/rsa.pem" 2>/dev/null > crl_empty.pem
certtool --generate-crl --load-ca-privkey "$work/rsa.pem" --load-ca-certificate "$work/rsa.crt" --load-certificate "$work/ec.crt" --template <(printf 'crl_next_update = 30\ncrl_number = 7\n') --outder --outfile crl_certtool.der 2>/dev/null
for f in crl_*.der; do openssl crl -inform DER -in "$f" -noout -text > "${f%.der}.txt"; done
ls -la | awk '{print $5, $9}'
