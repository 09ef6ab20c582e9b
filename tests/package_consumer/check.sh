#!/usr/bin/env bash
# Installs the build into a temp prefix, then builds and runs a consumer with
# find_package(bexocommon) and again with pkg-config.
set -euo pipefail
build=$1
here=$2
work=$(mktemp -d /tmp/bexo-consumer-XXXXXX)
trap 'rm -rf "$work"' EXIT
export BEXO_ROOT="$work/root"
mkdir -p "$BEXO_ROOT"
cmake --install "$build" --prefix "$work/prefix" >/dev/null
printf '[Main]\nPort = 8080\n' > "$work/test.ini"
libdir=$(find "$work/prefix" -name 'libbexocommon.so' -printf '%h\n' | head -1)
export LD_LIBRARY_PATH="$libdir"

cmake -S "$here" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
out=$("$work/cmake-build/consumer" "$work/test.ini")
[[ "$out" == "8080 1" ]] || { echo "find_package consumer printed '$out'"; exit 1; }

export PKG_CONFIG_PATH="$libdir/pkgconfig"
g++ -std=c++17 "$here/main.cc" $(pkg-config --cflags --libs bexocommon) -o "$work/pc-consumer"
out=$("$work/pc-consumer" "$work/test.ini")
[[ "$out" == "8080 1" ]] || { echo "pkg-config consumer printed '$out'"; exit 1; }
echo "package consumer: find_package and pkg-config both work"
