#!/bin/bash
# The test command's i386 path, on a narrowed copy of the tree (libraries,
# common-services suite, jxtrace): the emulator is chosen exactly when the
# kernel cannot run i386 programs or JX_I386_EMULATE=1 asks for it; chosen,
# the suites and the programs they start run under it and pass, and the
# command says so in one line; not chosen, nothing runs under it.
# Usage: test_all_i386_test.sh SOURCE-TREE
set -u
src=$1
work=$(mktemp -d /tmp/jxtestall.XXXXXX)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

tree=$work/tree
mkdir -p "$tree/tests" "$tree/tools" "$tree/deps"
cp -r "$src"/{CMakeLists.txt,cmake,include,lib,scripts,tables} "$tree"/
cp -r "$src"/tests/{CMakeLists.txt,support,jxmcs} "$tree"/tests/
cp -r "$src"/tools/{CMakeLists.txt,jxtrace} "$tree"/tools/
for dep in gtest-i386 openssl-i386; do
  [ -d "$src/deps/$dep" ] && ln -s "$src/deps/$dep" "$tree/deps/$dep"
done
export CMAKE_BUILD_PARALLEL_LEVEL=1
unset JX_I386_EMULATE JX_I386_PROBE
qemu=$(command -v qemu-i386 || echo /usr/bin/qemu-i386)

# The choice: environment -> status, emulator printed, message.
while IFS='|' read -r env rc emulator message; do
  out=$(env $env "$tree/scripts/i386-emulator.sh" 2>"$work/err")
  got=$?
  [ "$got" -eq "$rc" ] || fail "$env: status $got, expected $rc"
  [ "$out" = "${emulator/QEMU/$qemu}" ] || fail "$env: printed '$out', expected '$emulator'"
  [ "$(cat "$work/err")" = "${message/QEMU/$qemu}" ] || fail "$env: said '$(cat "$work/err")'"
done <<'ROWS'
JX_I386_PROBE=true|0||
JX_I386_PROBE=false|0|QEMU|i386: this kernel does not run 32-bit programs, so the i386 tests and the programs they start run under QEMU
JX_I386_PROBE=false JX_I386_EMULATE=0|0|QEMU|i386: this kernel does not run 32-bit programs, so the i386 tests and the programs they start run under QEMU
JX_I386_PROBE=true JX_I386_EMULATE=1|0|QEMU|i386: JX_I386_EMULATE=1, so the i386 tests and the programs they start run under QEMU
JX_I386_EMULATE=yes|2||JX_I386_EMULATE must be 0 or 1, not 'yes'
ROWS

# Whether the tests and the programs they start run under qemu-i386: the
# registered commands, the script tests' environment and the test programs'
# own copy of the emulator all agree.
check_build() {
  local want=$1 what=$2 listing
  listing=$(cd "$tree/build-i386" && ctest -N -V)
  local commands=$(grep -c "Test command: $qemu " <<<"$listing")
  local scripts=$(grep -c "JX_TEST_EMULATOR=$qemu" <<<"$listing")
  local baked=$(grep -c "$qemu" "$tree/build-i386/bin/jxmcs_tests")
  if [ "$want" = yes ]; then
    [ "$commands" -ge 1 ] && [ "$scripts" -ge 1 ] && [ "$baked" -ge 1 ] ||
      fail "$what: not everything runs under $qemu ($commands $scripts $baked)"
  else
    [ "$commands$scripts$baked" = 000 ] || fail "$what: something runs under $qemu ($commands $scripts $baked)"
  fi
}

# The kernel runs i386 programs and the switch is off: no emulator, and where
# the kernel really runs them, the suites pass natively.
out=$(JX_I386_PROBE=true "$tree/scripts/build.sh" i386 2>&1) || fail "native build failed: $out"
grep -q qemu <<<"$out" && fail "native build mentions qemu: $(grep qemu <<<"$out")"
check_build no "switch off"
if [ -z "$("$tree/scripts/i386-emulator.sh" 2>/dev/null)" ]; then
  (cd "$tree/build-i386" && ctest -j2 --output-on-failure) >"$work/native.log" 2>&1 ||
    fail "i386 suites failed natively: $(cat "$work/native.log")"
fi

# The switch on where the kernel runs them: the whole command passes under
# the emulator and says so once.
out=$(JX_I386_EMULATE=1 JX_I386_PROBE=true "$tree/scripts/test-all.sh" i386 2>&1)
[ $? -eq 0 ] || fail "emulated run failed: $out"
[ "$(grep -c "run under $qemu" <<<"$out")" -eq 1 ] || fail "emulation not said once: $out"
grep -q "^[1-9][0-9]* passed, 0 failed$" <<<"$out" || fail "no passing summary: $(tail -3 <<<"$out")"
check_build yes "JX_I386_EMULATE=1"

if [ "$failures" -ne 0 ]; then
  echo "$failures failure(s)"
  exit 1
fi
echo "test-all i386 tests passed"
