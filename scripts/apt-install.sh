#!/usr/bin/env bash
# Installs those of the named Debian packages that are not installed yet.
#   scripts/apt-install.sh PACKAGE...
# A mirror in the middle of a sync can fail one index of `apt-get update`;
# the lists it did fetch still serve, so only a failed install is fatal, and
# each step is tried again a few times before giving up.
set -euo pipefail
missing=()
for p in "$@"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "installing: ${missing[*]}"
sudo=""; [ "$(id -u)" -ne 0 ] && sudo=sudo
for try in 1 2 3; do
  $sudo apt-get update -qq || echo "apt-get update failed (try $try); using the lists it has" >&2
  if DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null; then
    exit 0
  fi
  sleep $((try * 5))
done
echo "could not install: ${missing[*]}" >&2
exit 1
