#!/usr/bin/env bash
# Makes the files of this folder with openssl, certtool and pk12util. Run it by hand; the results are checked in.
set -euo pipefail
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rm -f ./*.der ./*.p12 ./*.txt
export work OPENSSL_CONF=$work/openssl.cnf
cat > "$OPENSSL_CONF" <<'CNF'
[req]
distinguished_name = dn
[dn]
[ca]
database = $ENV::work/index
crlnumber = $ENV::work/number
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
freshestCRL = URI:http://crl.example.org/d.crl
CNF

key() { # name, options
  openssl genpkey -quiet "${@:2}" -out "$work/$1.pem"
  openssl pkcs8 -topk8 -nocrypt -in "$work/$1.pem" -outform DER -out "key_$1.der"
}
key rsa -algorithm RSA -pkeyopt rsa_keygen_bits:2048
key pss -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048
openssl genpkey -quiet -genparam -algorithm DSA -pkeyopt dsa_paramgen_bits:1024 -out "$work/dsap.pem"
key dsa -paramfile "$work/dsap.pem"
key ec -algorithm EC -pkeyopt ec_paramgen_curve:P-256
key ecexplicit -algorithm EC -pkeyopt ec_paramgen_curve:P-384 -pkeyopt ec_param_enc:explicit
key ed25519 -algorithm ED25519
for k in rsa:rsa dsa:dsa ec:ec ec:ecexplicit; do
  openssl ${k%:*} $([ $k != rsa:rsa ] || echo -traditional) -in "$work/${k#*:}.pem" -outform DER -out "plain_${k#*:}.der"
done

enc() { # name, options
  openssl pkcs8 -topk8 -provider default -provider legacy -in "$work/ec.pem" -passout pass:Zażółć1 -outform DER \
    -out "enc_$1.der" "${@:2}"
}
enc aes256 -v2 aes-256-cbc -v2prf hmacWithSHA256
enc aes128 -v2 aes-128-cbc -v2prf hmacWithSHA1
enc aes192_sha512 -v2 aes-192-cbc -v2prf hmacWithSHA512
enc des3 -v2 des3
enc rc2_64 -v2 rc2-64-cbc
enc scrypt -scrypt
enc pbe3des -v1 PBE-SHA1-3DES
enc pbe40 -v1 PBE-SHA1-RC2-40
enc pbemd5des -v1 PBE-MD5-DES
enc pbe2des -v1 PBE-SHA1-2DES
enc pberc4 -v1 PBE-SHA1-RC4-128
enc pberc4_40 -v1 PBE-SHA1-RC4-40
enc pberc2 -v1 PBE-SHA1-RC2-128
enc camellia128 -v2 camellia-128-cbc
enc camellia256_sha512_256 -v2 camellia-256-cbc -v2prf hmacWithSHA512-256
enc aes256_sha512_224 -v2 aes-256-cbc -v2prf hmacWithSHA512-224

request() { # options
  openssl req -new -utf8 -subj '/C=PL/O=Próba/CN=Jan Kowalski' -key "$work/$k.pem" -outform DER "$@"
}
for k in rsa pss dsa ec ecexplicit ed25519; do
  request -addext keyUsage=critical,digitalSignature,nonRepudiation -addext subjectAltName=email:jan@example.org \
    -out "req_$k.der"
  request -x509 -days 7000 -addext basicConstraints=critical,CA:true -addext keyUsage=critical,keyCertSign,cRLSign \
    -addext subjectKeyIdentifier=hash -out "$work/$k.der"
  openssl x509 -in "$work/$k.der" -out "$work/$k.crt"
done
cp "$work/rsa.der" crt_rsa.der
cp "$work/ec.der" crt_ec.der
certtool --generate-request --load-privkey "$work/rsa.pem" --outder --outfile req_certtool.der \
  --template <(printf 'cn = "Jan"\nchallenge_password = x\n')

p12() { # name, options
  openssl pkcs12 -export -out "pfx_$1.p12" -passout "${pass:-pass:Zażółć1}" "${@:2}"
}
rsa=(-inkey "$work/rsa.pem" -in "$work/rsa.crt")
ec=(-inkey "$work/ec.pem" -in "$work/ec.crt")
old=(-keypbe PBE-SHA1-3DES -certpbe PBE-SHA1-3DES -macalg sha1)
p12 openssl3 "${rsa[@]}" -name "Jan Kowalski ćwiczy"
p12 legacy "${rsa[@]}" -legacy
p12 3des "${ec[@]}" -certfile "$work/rsa.crt" -caname Korzeń "${old[@]}" -iter 1000 -maciter
# A reader is to stop in the contents of this one.
p12 nomaciter_slow "${ec[@]}" "${old[@]}" -iter 9999999 -nomaciter
p12 nomaciter "${ec[@]}" "${old[@]}" -nomaciter
p12 keybag -inkey "$work/dsa.pem" -in "$work/dsa.crt" -keypbe NONE -certpbe NONE
p12 nomac "${ec[@]}" -nomac
python3 pbmac1.py pfx_3des.p12 Zażółć1 pfx_pbmac1.p12
p12 certs -nokeys -in "$work/rsa.crt" -certfile "$work/ec.crt" -macalg sha512
pass=pass: p12 empty "${ec[@]}" -macalg sha1
certtool --to-p12 --load-privkey "$work/rsa.pem" --load-certificate "$work/rsa.crt" --p12-name Próba \
  --password Zażółć1 --outder --outfile pfx_certtool.p12
nss=(-d "$work/nss" -W Zażółć1 -K '')
mkdir "$work/nss"
certutil -N -d "$work/nss" --empty-password
pk12util -i pfx_3des.p12 "${nss[@]}"
nick=$(certutil -L -d "$work/nss" | sed -n 's/ *u,u,u$//p')
pk12util -o pfx_nss.p12 -n "$nick" "${nss[@]}"
pk12util -o pfx_nss_old.p12 -n "$nick" "${nss[@]}" -c "PKCS #12 V2 PBE With SHA-1 And 3KEY Triple DES-CBC" \
  -C "PKCS #12 V2 PBE With SHA-1 And 40 Bit RC2 CBC"

printf 'treść podpisana' > content.txt
cms() { # name, options
  openssl cms -binary -nosmimecap -in content.txt -outform DER -out "cms_$1.der" "${@:2}"
}
rsa=(-sign -signer "$work/rsa.crt" -inkey "$work/rsa.pem")
cms rsa "${rsa[@]}" -nodetach -md sha256
cms detached "${rsa[@]}" -md sha512 -keyid
cms noattr "${rsa[@]}" -nodetach -noattr -md sha1
cms pss "${rsa[@]}" -nodetach -md sha256 -keyopt rsa_padding_mode:pss
cms stream "${rsa[@]}" -nodetach -stream -md sha256
cms ec -sign -signer "$work/ec.crt" -inkey "$work/ec.pem" -nodetach -md sha384
cms dsa -sign -signer "$work/dsa.crt" -inkey "$work/dsa.pem" -nodetach -md sha1
cms encrypted -EncryptedData_encrypt -aes-256-cbc -secretkey "$(printf '%064d' 1)"
cms digested -digest_create
cms data -data_create
certtool --p7-sign --load-privkey "$work/rsa.pem" --load-certificate "$work/rsa.crt" --infile content.txt --outder \
  --outfile cms_certtool.der
openssl crl2pkcs7 -nocrl -certfile "$work/rsa.crt" -certfile "$work/ec.crt" -certfile "$work/ed25519.crt" \
  -outform DER -out p7_bundle.der

n=0
for reason in ,unspecified ,keyCompromise ,CACompromise ,affiliationChanged ,superseded ,cessationOfOperation \
  ,certificateHold '' ,keyTime,20231109101500Z ''; do
  n=$((n + 1))
  serial=$(printf '%02X' $n)
  [ $n != 10 ] || serial=00AABBCCDDEEFF001122
  printf 'R\t400101000000Z\t2311%02d101500Z%s\t%s\tunknown\t/CN=%d\n' $n "$reason" $serial $n
done > "$work/index"
echo 0A > "$work/number"
crl() { # name, issuer, options
  openssl ca -name ca -gencrl -cert "$work/$2.crt" -keyfile "$work/$2.pem" "${@:3}" |
    openssl crl -outform DER -out "crl_$1.der"
}
crl rsa rsa
crl full rsa -crlexts crlfull
crl delta ec -crlexts crldelta
crl pss rsa -sigopt rsa_padding_mode:pss
: > "$work/index"
crl empty ec
certtool --generate-crl --load-ca-privkey "$work/rsa.pem" --load-ca-certificate "$work/rsa.crt" --outder \
  --load-certificate "$work/ec.crt" --template <(printf 'crl_next_update = 30\ncrl_number = 7\n') \
  --outfile crl_certtool.der
for f in crl_*.der; do
  openssl crl -inform DER -in "$f" -noout -text > "${f%.der}.txt"
done
