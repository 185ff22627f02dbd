#!/usr/bin/env bash
# Installs what building needs on a fresh Debian machine: the packages
# listed in scripts/packages-build.txt, GoogleTest built for i386 and
# OpenSSL's i386 libraries; with --tests also those of
# scripts/packages-test.txt, which only the test suites use.
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

# OpenSSL for i386 (the i386 client library links it): an installed
# libssl-dev:i386, else Debian's i386 packages unpacked once into
# deps/openssl-i386. Unpacking leaves the system's own OpenSSL alone, whose
# version an installed i386 one would have to match.
ssl32="$top/deps/openssl-i386"
if [ ! -f /usr/lib/i386-linux-gnu/libssl.so ] && [ ! -f "$ssl32/usr/lib/i386-linux-gnu/libssl.so" ]; then
  echo "unpacking OpenSSL for i386 into $ssl32"
  sudo=""; [ "$(id -u)" -ne 0 ] && sudo=sudo
  if ! dpkg --print-foreign-architectures | grep -qx i386; then
    $sudo dpkg --add-architecture i386
  fi
  # An index of another architecture that is being synced must not stop the rest.
  $sudo apt-get update -qq || true
  tmp=$(mktemp -d)
  chmod 755 "$tmp"
  (cd "$tmp" && apt-get download -qq libssl-dev:i386 libssl3:i386 2>/dev/null)
  mkdir -p "$ssl32"
  for deb in "$tmp"/*.deb; do dpkg-deb -x "$deb" "$ssl32"; done
  rm -rf "$tmp"
fi
