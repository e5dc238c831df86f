#!/usr/bin/env bash
# Proves from outside that the library installs and links the two ways the
# README shows: installs a built tree into a temporary prefix, then builds
# examples/ as a separate CMake project with find_package against it, and
# compiles the same example with pkg-config; runs both on a PKCS#7 file.
#
#   tests/install/install-test.sh BUILD_DIR     (BUILD_DIR already built)
set -euo pipefail
src="$(cd "$(dirname "$0")/../.." && pwd)"
build="$(cd "$1" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"
input="$src/tests/data/cert/chain.p7b"

expect_output() {  # expect_output NAME EXE
  local out
  out="$("$2" "$input")" || { echo "install test: $1: the example failed" >&2; exit 1; }
  if ! grep -q "^CN: ec.example.test$" <<<"$out" || ! grep -q "BEGIN CERTIFICATE" <<<"$out"; then
    echo "install test: $1: unexpected output:" >&2
    echo "$out" >&2
    exit 1
  fi
  echo "install test: $1: ok"
}

cmake --install "$build" --prefix "$prefix" >"$work/install.log" \
  || { cat "$work/install.log" >&2; exit 1; }
"$prefix/bin/ovcert" --version >/dev/null

# A shared library carries a soname with the major version.
lib=$(ls "$prefix"/lib*/liborvane-cert.so 2>/dev/null || true)
if [ -n "$lib" ]; then
  readelf -d "$lib" | grep -q 'SONAME.*liborvane-cert\.so\.[0-9]' \
    || { echo "install test: $lib has no versioned soname" >&2; exit 1; }
  echo "install test: shared library soname: ok"
fi

cmake -S "$src/examples" -B "$work/ex" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  >"$work/ex.log" 2>&1 && cmake --build "$work/ex" >>"$work/ex.log" 2>&1 \
  || { cat "$work/ex.log" >&2; exit 1; }
expect_output "find_package" "$work/ex/load_ask_export"

pcdir=$(dirname "$(ls "$prefix"/lib*/pkgconfig/orvane-cert.pc)")
flags=$(PKG_CONFIG_PATH="$pcdir" pkg-config --cflags --libs orvane-cert)
libdir=$(PKG_CONFIG_PATH="$pcdir" pkg-config --variable=libdir orvane-cert)
# shellcheck disable=SC2086  # the flags are words
g++ -std=c++17 -o "$work/pc_example" "$src/examples/load_ask_export.cpp" $flags \
  -Wl,-rpath,"$libdir"
expect_output "pkg-config" "$work/pc_example"
