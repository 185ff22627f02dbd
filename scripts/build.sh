#!/usr/bin/env bash
# Configures and builds one target: native (default), i386 or sanitize.
#   scripts/build.sh [native|i386|sanitize]   -> build/, build-i386/, build-asan/
# Where the kernel cannot run i386 programs (or JX_I386_EMULATE=1), the i386
# build's tests run under qemu-i386 (scripts/i386-emulator.sh). Jobs:
# CMAKE_BUILD_PARALLEL_LEVEL, else one a CPU.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
kind=${1:-native}
args=(-G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo)
case "$kind" in
  native) dir=build ;;
  i386) dir=build-i386
        args+=(-DCMAKE_TOOLCHAIN_FILE="$top/cmake/i386.cmake" -DCMAKE_PREFIX_PATH="$top/deps/gtest-i386"
               -DJX_NATIVE_BIN_DIR="$top/build/bin")
        # OpenSSL unpacked by scripts/install-deps.sh where none is installed.
        ssl="$top/deps/openssl-i386/usr"
        [ -d "$ssl" ] && args+=(-DOPENSSL_ROOT_DIR="$ssl" -DOPENSSL_INCLUDE_DIR="$ssl/include"
                                -DOPENSSL_SSL_LIBRARY="$ssl/lib/i386-linux-gnu/libssl.so"
                                -DOPENSSL_CRYPTO_LIBRARY="$ssl/lib/i386-linux-gnu/libcrypto.so")
        emulator=$("$top/scripts/i386-emulator.sh")
        args+=(-DCMAKE_CROSSCOMPILING_EMULATOR="$emulator") ;;
  sanitize) dir=build-asan; args+=(-DJX_SANITIZE=ON) ;;
  *) echo "usage: $0 [native|i386|sanitize]" >&2; exit 2 ;;
esac
cmake -S "$top" -B "$top/$dir" "${args[@]}" >/dev/null
cmake --build "$top/$dir" -j"${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)}"
