#!/usr/bin/env bash
# usage: installed.sh <build folder> <source folder> <C compiler> [flags...]
# Installs the library, builds the client against what was installed, through pkg-config against both libraries and through
# CMake, and runs it; then compares the library's exports with the header.
set -euo pipefail
build=$1 source=$2 cc=$3
shift 3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/made" --component runtime >/dev/null
find "$work/made" -name 'libcorvane.so.3*' | grep -q .
cmake --install "$build" --prefix "$work/made" --component development >/dev/null
mv "$work/made" "$work/root"  # what is installed must not know where
lib=$(dirname "$(find "$work/root" -name libcorvane.so)")
export PKG_CONFIG_PATH=$lib/pkgconfig LD_LIBRARY_PATH=$lib

cat >"$work/expected" <<EOF
2: KARTA/5 PLIK/1
[Token                           ]
LDAP ldap.pl:389/o=CA tajne
$(printf 'Błąd przy ładowaniu profilu profilu CORVANE: B\xc4\xb9\xe2\x80\x9a\xc3\x84\xe2\x80\xa6d otwarcia pliku konfiguracyjnego: /brak')
Nieznany kod błędu 9999 !!!
1: KARTA/5
EOF

try() {
  rm -f "$work/list"
  "$1" "$work/list" >"$work/out" || { cat "$work/out"; echo "$1 failed"; exit 1; }
  diff "$work/expected" "$work/out"
}

strict=(-std=c11 -Wall -Wextra -Wpedantic -Werror "$@")
"$cc" "${strict[@]}" "$source/client.c" -o "$work/shared" $(pkg-config --cflags --libs corvane)
try "$work/shared"
"$cc" "${strict[@]}" "$source/client.c" -o "$work/static" $(pkg-config --cflags corvane) "$lib/libcorvane.a" \
  $(pkg-config --static --libs corvane | sed 's/-lcorvane//')
try "$work/static"

mkdir "$work/cmake"
cat >"$work/cmake/CMakeLists.txt" <<EOF
cmake_minimum_required(VERSION 3.25)
project(client C)
find_package(Corvane 3 REQUIRED)
foreach(kind corvane corvane_static)
  add_executable(client_\${kind} "$source/client.c")
  target_compile_options(client_\${kind} PRIVATE $*)
  target_link_options(client_\${kind} PRIVATE $*)
  target_link_libraries(client_\${kind} Corvane::\${kind})
endforeach()
EOF
cmake -S "$work/cmake" -B "$work/cmake/build" -DCMAKE_PREFIX_PATH="$work/root" -DCMAKE_C_COMPILER="$cc" >"$work/log" &&
  cmake --build "$work/cmake/build" >>"$work/log" || { cat "$work/log"; exit 1; }
try "$work/cmake/build/client_corvane"
try "$work/cmake/build/client_corvane_static"

# The example, on a profile that has been set up by the commands.
examples=$source/../../examples
"$cc" -std=c99 -Wall -Wextra -Werror "$@" "$examples/messages.c" -o "$work/messages" $(pkg-config --cflags --libs corvane)
CFLAGS="$*" LDFLAGS="$*" cmake -S "$examples" -B "$work/examples" -DCMAKE_PREFIX_PATH="$work/root" -DCMAKE_C_COMPILER="$cc" >"$work/log" &&
  cmake --build "$work/examples" >>"$work/log" || { cat "$work/log"; exit 1; }
PATH=$build/bin:$PATH "$examples/road.sh" "$work/road" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
head -c 300000 /dev/urandom >"$work/file"
for program in "$work/messages" "$work/examples/messages"; do
  CORVANE_PASSWORD=$(cat "$work/road/password") "$program" "$work/road/profiles.conf" DROGA "$work/file" >"$work/out"
  printf 'signed by CN=Jan Kowalski,O=Firma,C=PL\ndecrypted 300000 octets\n' | diff - "$work/out"
  openssl cms -verify -binary -inform DER -in "$work/file.p7s" -content "$work/file" -CAfile "$work/road/ca/ca.pem" \
    -purpose any -out /dev/null 2>"$work/log" || { cat "$work/log"; exit 1; }
done

# C and C++ of every age take the header, also beside a declaration of the program's own.
printf 'struct CRVctx;\nstruct CrvProfile;\n#include <corvane/crvapi.h>\nstruct CRVctx;\nstruct CrvCert;\n' >"$work/header.c"
for std in c89 c99 c11 c17 c++98 c++11 c++17 c++20; do
  "$cc" -x "$(case $std in c++*) echo c++ ;; *) echo c ;; esac)" -std=$std -Wall -Wextra -Wpedantic -Werror -fsyntax-only \
    "-I$work/root/include" "$work/header.c"
done

if [ $# = 0 ]; then
  # A debug build has unique symbols, which no tool makes local.
  unique=$(grep -q '^CMAKE_BUILD_TYPE:STRING=Debug' "$build/CMakeCache.txt" && echo u || echo none)
  nm -g --defined-only "$lib/libcorvane.a" | awk -v unique="$unique" 'NF == 3 && $2 != unique && $3 !~ /^crv[A-Z]/' |
    tee "$work/foreign" | head
  [ ! -s "$work/foreign" ]
fi

grep -hoE '\bCRV_API.*\bcrv[A-Z][A-Za-z0-9]*\(' "$work"/root/include/corvane/*.h | grep -oE 'crv[A-Z][A-Za-z0-9]*\('  | tr -d '(' | sort -u >"$work/declared"
nm -D --defined-only "$lib/libcorvane.so" | awk '$2 == "T" {sub("@.*", "", $3); print $3}' | sort -u >"$work/exported"
diff "$work/declared" "$work/exported"
# The packages' list of calls, each with the version that brought it.
sed -n 's/^ \(crv[A-Z][A-Za-z0-9]*\)@.*/\1/p' "$source/../../debian/libcorvane3.symbols" | sort -u | diff - "$work/exported"
# Unloading it would crash the threads that used it when they end.
readelf -d "$lib/libcorvane.so" | grep 'NODELETE' >/dev/null
# Tables of the linker are read-only before the program runs.
readelf -d "$lib/libcorvane.so" | grep -w NOW >/dev/null
readelf -d "$build/bin/crvconfd" | grep -w PIE >/dev/null
# Not grep -q, which may leave before objdump has said everything.
objdump -p "$lib/libcorvane.so" | grep 'SONAME *libcorvane.so.3$' >/dev/null
