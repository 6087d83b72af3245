#!/usr/bin/env bash
# Installs the built library into a scratch prefix, then builds and runs a C99
# application against it twice: with pkg-config and with find_package.
# Arguments: build dir, scratch dir, C compiler, extra flags (sanitizers).
set -euo pipefail
build=$1 scratch=$2 cc=$3 extra=${4:-}
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$scratch" && mkdir -p "$scratch"
prefix=$scratch/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null

libdir=$(dirname "$(find "$prefix" -name zolt_timing.pc)")/..
test -L "$libdir/libzolt_timing.so" && test -L "$libdir/libzolt_timing.so.0" && test -f "$libdir/libzolt_timing.so.0.3.0"
export LD_LIBRARY_PATH=$libdir${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}

export PKG_CONFIG_PATH=$libdir/pkgconfig
# shellcheck disable=SC2046,SC2086
"$cc" -std=c99 -Wall -Wextra -Werror -pedantic $extra "$here/app.c" -o "$scratch/app_pkgconfig" \
  $(pkg-config --cflags --libs zolt_timing)
"$scratch/app_pkgconfig"

cmake -S "$here" -B "$scratch/cmake_build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$cc" \
  -DCMAKE_C_FLAGS="$extra" -DCMAKE_EXE_LINKER_FLAGS="$extra" >/dev/null
cmake --build "$scratch/cmake_build" >/dev/null
"$scratch/cmake_build/app"
