#!/usr/bin/env bash
# A profile from nothing to daily use without a terminal: crvctl and an authority of one's own.
# usage: examples/road.sh <folder>   (made; the password of the security file is read from <folder>/password when it is there)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$1"
cd "$1"
umask 077
[ -e password ] || printf 'Droga-%s\n' "$(od -An -N8 -tx1 /dev/urandom | tr -d ' \n')" > password

export CRV_PROFILE_FILE=$PWD/profiles.conf CRV_PROFILE=DROGA
ctl() { crvctl --non-interactive "$@"; }
open=(--password-file password)

ctl profile create DROGA
ctl store init "${open[@]}"
ctl db create
ctl key generate --use both --request zgloszenie.pem --subject 'CN=Jan Kowalski, O=Firma, C=PL' "${open[@]}"

"$here/demo-ca/demo-ca" init ca
"$here/demo-ca/demo-ca" sign ca zgloszenie.pem moj.crt
ctl cert install moj.crt "${open[@]}"
ctl trust add ca/ca.pem "${open[@]}"
ctl cert import ca/ca.pem
ctl cert verify --role sign "${open[@]}"

ctl crl import ca/ca.crl "${open[@]}"

ctl policy add 1.3.6.1.4.1.32473.9 'Polityka firmy' "${open[@]}"
ctl usage add 1.3.6.1.5.5.7.3.4
ctl server add LDAP --address ldap.example --use certificates --use crl
ctl setting set connect-timeout 10 "${open[@]}"
ctl store backup kopia.p12 "${open[@]}"
ctl profile check
