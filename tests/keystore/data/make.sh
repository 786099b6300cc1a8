#!/usr/bin/env bash
# Makes the keys, certificates and foreign PFX files of this folder anew with openssl, certtool and pk12util.
set -euo pipefail
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

key() { # name, genpkey arguments
  openssl genpkey "${@:2}" -out "$work/$1.pem" 2>/dev/null
  openssl pkcs8 -topk8 -nocrypt -in "$work/$1.pem" -outform DER -out "key_$1.der"
}
key rsa1 -algorithm RSA -pkeyopt rsa_keygen_bits:2048
key rsa2 -algorithm RSA -pkeyopt rsa_keygen_bits:2048
key ec -algorithm EC -pkeyopt ec_paramgen_curve:P-256
openssl dsaparam -out "$work/dsa.par" 1024 2>/dev/null
openssl gendsa -out "$work/dsa.pem" "$work/dsa.par" 2>/dev/null
openssl pkcs8 -topk8 -nocrypt -in "$work/dsa.pem" -outform DER -out key_dsa.der
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out "$work/ca.pem" 2>/dev/null
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -out "$work/short.pem" 2>/dev/null
openssl genpkey -algorithm ED25519 -out "$work/ed.pem"

cat > "$work/ca.cnf" <<CNF
[ca]
default_ca = d
[d]
dir = $work
database = $work/index.txt
serial = $work/serial
new_certs_dir = $work
default_md = sha256
policy = p
unique_subject = no
[p]
commonName = supplied
[ca_ext]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
[sign_ext]
keyUsage = critical,digitalSignature,nonRepudiation
[enc_ext]
keyUsage = critical,keyEncipherment
[both_ext]
keyUsage = critical,digitalSignature,keyEncipherment
[none_ext]
basicConstraints = CA:FALSE
CNF
: > "$work/index.txt"
echo 01 > "$work/serial"

issue() { # file, key, name, extensions, start year, further arguments of openssl ca
  openssl req -new -utf8 -key "$work/$2.pem" -subj "/CN=$3" -out "$work/r.csr"
  openssl ca -config "$work/ca.cnf" -batch -notext -in "$work/r.csr" -extensions "$4_ext" \
    -startdate "${5}0101000000Z" -enddate "21000101000000Z" -out "$work/$1.pem.crt" "${@:6}" 2>/dev/null
  openssl x509 -in "$work/$1.pem.crt" -outform DER -out "crt_$1.der"
}
issue ca ca "Urząd testowy" ca 2020 -selfsign -keyfile "$work/ca.pem"
issue ca_ec ec "Urząd EC" ca 2020 -selfsign -keyfile "$work/ec.pem"
issue ca_md5 ca "Urząd MD5" ca 2020 -selfsign -keyfile "$work/ca.pem" -md md5
issue ca_short short "Urząd 1024" ca 2020 -selfsign -keyfile "$work/short.pem"
issue no_ca rsa1 "Nie urząd" none 2020 -selfsign -keyfile "$work/rsa1.pem"
by=(-keyfile "$work/ca.pem" -cert "$work/ca.pem.crt")
issue sign rsa1 "Jan Żółw" sign 2021 "${by[@]}"
issue sign_newer rsa1 "Jan Żółw" sign 2022 "${by[@]}"
issue sign_other rsa1 "Jan Inny" sign 2022 "${by[@]}"
issue enc rsa2 "Jan Żółw" enc 2021 "${by[@]}"
issue enc_by_rsa1 rsa1 "Jan Żółw" enc 2021 "${by[@]}"
issue both rsa2 "Jan Żółw" both 2021 "${by[@]}"
issue plain rsa1 "Jan Żółw" none 2021 "${by[@]}"
issue dsa dsa "Jan Żółw" sign 2021 "${by[@]}"

p12() { # file, password, key, certificate, further arguments
  openssl pkcs12 -export -in "$work/$4.pem.crt" -inkey "$work/$3.pem" -passout "pass:$2" -out "$1.p12" "${@:5}"
}
p12 openssl_new 'zażółć gęślą' rsa1 sign -certfile "$work/ca.pem.crt"
p12 openssl_old '𝄞klucz😀' rsa2 enc -legacy
p12 openssl_ec 'Hasło1234' ec ca_ec -keypbe AES-128-CBC -macalg sha512
openssl pkcs12 -export -nocerts -inkey "$work/ed.pem" -passout 'pass:Hasło1234' -out openssl_ed25519.p12
openssl pkcs12 -export -nokeys -in "$work/ca.pem.crt" -passout pass:korzenie -out roots.p12
openssl pkcs12 -export -nokeys -in "$work/ca.pem.crt" -passout pass: -out roots_empty.p12
cat "$work/rsa1.pem" "$work/rsa2.pem" "$work/ec.pem" > "$work/keys.pem"
cat "$work/sign.pem.crt" "$work/enc.pem.crt" > "$work/certs.pem"
certtool --to-p12 --p12-name klucze --password 'Zażółć_1' --load-privkey "$work/keys.pem" \
  --load-certificate "$work/certs.pem" --outder --outfile certtool_three.p12 2>/dev/null
mkdir "$work/nss"
certutil -N -d "sql:$work/nss" --empty-password
openssl pkcs12 -export -in "$work/sign.pem.crt" -inkey "$work/rsa1.pem" -name n1 -passout pass:x -out "$work/n.p12"
pk12util -i "$work/n.p12" -d "sql:$work/nss" -W x >/dev/null
pk12util -o nss.p12 -n n1 -d "sql:$work/nss" -W 'Gęś+Ósemka9' >/dev/null
