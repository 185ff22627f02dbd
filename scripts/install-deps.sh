#!/usr/bin/env bash
# Installs what building needs on a fresh Debian machine: the packages
# listed in scripts/packages-build.txt and GoogleTest built for i386; with
# --tests also those of scripts/packages-test.txt, which only the test
# suites use.
#   scripts/install-deps.sh [--tests]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
top=$(dirname "$here")
lists=("$here/packages-build.txt")
[ "${1:-}" = --tests ] && lists+=("$here/packages-test.txt")

"$here/apt-install.sh" $(cat "${lists[@]}" | sed 's/#.*//' | tr -s ' \n' '\n' | grep -v '^$' | sort -u)

# GoogleTest for i386: use an installed i386 build, else build the packaged
# sources once into deps/gtest-i386.
gtest32="$top/deps/gtest-i386"
if [ ! -f /usr/lib/i386-linux-gnu/libgtest.a ] && [ ! -f "$gtest32/lib/libgtest.a" ]; then
  echo "building GoogleTest for i386 from /usr/src/googletest"
  tmp=$(mktemp -d)
  cmake -S /usr/src/googletest -B "$tmp" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$top/cmake/i386.cmake" -DCMAKE_INSTALL_PREFIX="$gtest32" >/dev/null
  cmake --build "$tmp" >/dev/null
  cmake --install "$tmp" >/dev/null
  rm -rf "$tmp"
fi
