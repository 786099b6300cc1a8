#!/usr/bin/env bash
# Makes the keys, certificates and foreign PFX files of this folder anew with openssl and certtool.
set -euo pipefail
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

key() { # name, genpkey arguments
  openssl genpkey -quiet "${@:2}" -out "$work/$1.pem"
  openssl pkcs8 -topk8 -nocrypt -in "$work/$1.pem" -outform DER -out "key_$1.der"
}
openssl genpkey -quiet -genparam -algorithm DSA -pkeyopt dsa_paramgen_bits:1024 -out "$work/dsa.par"
key dsa -paramfile "$work/dsa.par"
key ec -algorithm EC -pkeyopt ec_paramgen_curve:P-256
key ed -algorithm ED25519
for name in rsa1:2048 rsa2:2048 ca:2048 short:1024; do
  key "${name%:*}" -algorithm RSA -pkeyopt "rsa_keygen_bits:${name#*:}"
done
rm key_ed.der key_ca.der key_short.der

cat > "$work/ca.cnf" <<CNF
[ca]
database = $work/index.txt
new_certs_dir = $work
rand_serial = yes
default_md = sha256
policy = policy
unique_subject = no
copy_extensions = copy
[policy]
commonName = supplied
CNF
: > "$work/index.txt"
ca_ext='basicConstraints=critical,CA:TRUE keyUsage=critical,keyCertSign,cRLSign'
sign_ext=keyUsage=critical,digitalSignature,nonRepudiation
enc_ext=keyUsage=critical,keyEncipherment
issue() { # file, key, name, extensions, start year, further arguments of openssl ca
  # shellcheck disable=SC2086
  openssl req -new -utf8 -key "$work/$2.pem" -subj "/CN=$3" $(printf ' -addext %s' $4) -out "$work/r.csr"
  openssl ca -name ca -config "$work/ca.cnf" -batch -notext -in "$work/r.csr" -startdate "${5}0101000000Z" \
    -enddate 21000101000000Z -out "$work/$1.crt" "${@:6}"
  openssl x509 -in "$work/$1.crt" -outform DER -out "crt_$1.der"
}
issue ca ca "Urząd testowy" "$ca_ext" 2020 -selfsign -keyfile "$work/ca.pem"
issue ca_ec ec "Urząd EC" "$ca_ext" 2020 -selfsign -keyfile "$work/ec.pem"
issue ca_md5 ca "Urząd MD5" "$ca_ext" 2020 -selfsign -keyfile "$work/ca.pem" -md md5
issue ca_short short "Urząd 1024" "$ca_ext" 2020 -selfsign -keyfile "$work/short.pem"
issue no_ca rsa1 "Nie urząd" basicConstraints=CA:FALSE 2020 -selfsign -keyfile "$work/rsa1.pem"
by=(-keyfile "$work/ca.pem" -cert "$work/ca.crt")
issue sign rsa1 "Jan Żółw" $sign_ext 2021 "${by[@]}"
issue sign_newer rsa1 "Jan Żółw" $sign_ext 2022 "${by[@]}"
issue sign_other rsa1 "Jan Inny" $sign_ext 2022 "${by[@]}"
issue enc rsa2 "Jan Żółw" $enc_ext 2021 "${by[@]}"
issue enc_by_rsa1 rsa1 "Jan Żółw" $enc_ext 2021 "${by[@]}"
issue both rsa2 "Jan Żółw" $sign_ext,keyEncipherment 2021 "${by[@]}"
issue plain rsa1 "Jan Żółw" basicConstraints=CA:FALSE 2021 "${by[@]}"
issue dsa dsa "Jan Żółw" $sign_ext 2021 "${by[@]}"

p12() { # file, password, further arguments
  openssl pkcs12 -export -passout "pass:$2" -out "$1.p12" "${@:3}"
}
p12 openssl_new 'zażółć gęślą' -inkey "$work/rsa1.pem" -in "$work/sign.crt" -certfile "$work/ca.crt"
p12 openssl_old '𝄞klucz😀' -inkey "$work/rsa2.pem" -in "$work/enc.crt" -legacy
p12 openssl_ec 'Hasło1234' -inkey "$work/ec.pem" -in "$work/ca_ec.crt" -keypbe AES-128-CBC -macalg sha512
p12 openssl_ed25519 'Hasło1234' -inkey "$work/ed.pem" -nocerts
p12 roots korzenie -nokeys -in "$work/ca.crt"
p12 roots_empty '' -nokeys -in "$work/ca.crt"
certtool --to-p12 --p12-name klucze --password 'Zażółć_1' --outder --outfile certtool_three.p12 \
  --load-privkey <(cat "$work"/{rsa1,rsa2,ec}.pem) --load-certificate <(cat "$work"/{sign,enc}.crt)
