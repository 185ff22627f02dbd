#!/usr/bin/env bash
# Configures and builds one target: native (default), i386 or sanitize.
#   scripts/build.sh [native|i386|sanitize]   -> build/, build-i386/, build-asan/
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
kind=${1:-native}
args=(-G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo)
case "$kind" in
  native) dir=build ;;
  i386) dir=build-i386
        args+=(-DCMAKE_TOOLCHAIN_FILE="$top/cmake/i386.cmake" -DCMAKE_PREFIX_PATH="$top/deps/gtest-i386"
               -DJX_NATIVE_BIN_DIR="$top/build/bin") ;;
  sanitize) dir=build-asan; args+=(-DJX_SANITIZE=ON) ;;
  *) echo "usage: $0 [native|i386|sanitize]" >&2; exit 2 ;;
esac
cmake -S "$top" -B "$top/$dir" "${args[@]}" >/dev/null
cmake --build "$top/$dir" -j"$(nproc)"
