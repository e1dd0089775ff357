#!/usr/bin/env bash
# Installs a build into a scratch prefix and builds a program against it twice: through CMake and through pkg-config.
# Usage: run.sh BUILD_DIR [COMPILER FLAGS for a sanitized build]
set -euo pipefail
source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$1
flags=${2:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
libdir=$(dirname "$(find "$work/prefix" -name libkslib.so)")
export LD_LIBRARY_PATH=$libdir

cmake -S "$source_dir" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_C_FLAGS="$flags" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/consumer"

export PKG_CONFIG_PATH=$libdir/pkgconfig
# shellcheck disable=SC2046,SC2086
cc -std=gnu11 $flags "$source_dir/main.c" -o "$work/consumer" $(pkg-config --cflags --libs kslib)
"$work/consumer"
"$work/prefix/bin/ks" --version
