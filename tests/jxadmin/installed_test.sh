# The installed tree as a user meets it: the samples built out of the tree
# with pkg-config and with find_package(jx), run against a queue manager
# that the installed programs create and start.
#   installed_test.sh BUILD_DIR SOURCE_DIR GENERATOR
build=$1 src=$2 generator=$3
work=$(mktemp -d)
prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null || { echo "FAILED: install"; exit 1; }
source "$(dirname "$0")/lib.sh" "$prefix/bin"
# Installed programs carry the run path of the configured prefix, /opt/jxm.
export LD_LIBRARY_PATH="$prefix/lib"
trap 'cleanup; rm -rf "$work"' EXIT
for f in jxadmin jxqm jxqmgr; do [ -x "$prefix/bin/$f" ] || fail "$f not installed"; done
[ -f "$prefix/share/jx/samples/inquire_depth.c" ] || fail "samples not installed"

# pkg-config: one compiler line.
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
cc -std=c11 -Wall -Wextra -Werror -o "$work/inquire_depth" "$prefix/share/jx/samples/inquire_depth.c" \
  $(pkg-config --cflags --libs jx) || fail "pkg-config build"
# find_package(jx): a CMake project.
cmake -S "$src/tests/jxadmin/consumer" -B "$work/consumer" -G "$generator" \
  -DCMAKE_PREFIX_PATH="$prefix" \
  -DSAMPLES="$prefix/share/jx/samples/put_messages.c;$prefix/share/jx/samples/put_get_bag.c" \
  >/dev/null || fail "find_package configure"
cmake --build "$work/consumer" >/dev/null || fail "find_package build"

qm_start QI
expect 0 jxadmin -m QI create queue INST.Q
BIN="$work/consumer" expect 0 put_messages QI INST.Q 3
BIN="$work/consumer" expect 0 put_get_bag QI INST.Q
has "got order 4711: 12 widgets"
BIN="$work" expect 0 inquire_depth QI INST.Q
[ "$OUT" = "INST.Q depth 3" ] || fail "depth through the installed library"
# A program built with pkg-config finds the libraries by its run path.
readelf -d "$work/inquire_depth" | grep -q "$prefix/lib" || fail "no run path to $prefix/lib"
echo "installed package: passed"
