# The Debian package: built with CPack, installed with dpkg -i, its
# programs run and a sample built against it. Needs root (skipped else).
#   deb_test.sh BUILD_DIR
build=$1
if [ "$(id -u)" -ne 0 ] || ! command -v dpkg >/dev/null; then
  echo "skipped: installing a package needs root and dpkg"
  exit 77
fi
work=$(mktemp -d)
was_installed=$(dpkg-query -W -f='${Status}' jxm 2>/dev/null | grep -c 'install ok installed')
(cd "$build" && cpack -G DEB -B "$work" >/dev/null) || { echo "FAILED: cpack"; exit 1; }
deb=$(ls "$work"/jxm_*_*.deb)
[[ "$(basename "$deb")" =~ ^jxm_[0-9]+\.[0-9]+\.[0-9]+_(amd64|i386)\.deb$ ]] || { echo "FAILED: name $deb"; exit 1; }
dpkg -i "$deb" >/dev/null || { echo "FAILED: dpkg -i"; exit 1; }
source "$(dirname "$0")/lib.sh" /opt/jxm/bin
remove() {
  cleanup
  [ "$was_installed" = 1 ] || dpkg -r jxm >/dev/null
  rm -rf "$work"
}
trap remove EXIT
[ "$(dpkg -L jxm | grep -c '^/opt/jxm/bin/jx')" -ge 3 ] || fail "programs not in the package"

cc -o "$work/inquire_depth" /opt/jxm/share/jx/samples/inquire_depth.c \
  $(PKG_CONFIG_PATH=/opt/jxm/lib/pkgconfig pkg-config --cflags --libs jx) || fail "sample build"
qm_start QD
expect 0 jxadmin -m QD create queue DEB.Q --max-depth 9
BIN="$work" expect 0 inquire_depth QD DEB.Q
[ "$OUT" = "DEB.Q depth 0" ] || fail "sample against the package"
expect 0 jxadmin -m QD show queues DEB.Q
has "DEB.Q"
echo "Debian package: passed"
