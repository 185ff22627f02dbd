#!/usr/bin/env bash
# The test command: installs what is needed, builds the x86-64, i386 and
# sanitizer targets (or those named) and runs every test suite of each.
#   scripts/test-all.sh [native|i386|sanitize]...
# On a kernel that does not run i386 programs the i386 suites run under
# qemu-i386; JX_I386_EMULATE=1 makes them do so anyway (see build.sh).
set -uo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
kinds=("$@")
[ ${#kinds[@]} -eq 0 ] && kinds=(native i386 sanitize)
for kind in "${kinds[@]}"; do
  case "$kind" in
    native | i386 | sanitize) ;;
    *) echo "usage: $0 [native|i386|sanitize]..." >&2; exit 2 ;;
  esac
done
"$top/scripts/install-deps.sh" --tests || exit 1

passed=0; failed=0
for kind in "${kinds[@]}"; do
  echo "=== $kind: build"
  if ! "$top/scripts/build.sh" "$kind"; then
    echo "=== $kind: build FAILED"; failed=$((failed + 1)); continue
  fi
  dir=build; [ "$kind" = i386 ] && dir=build-i386; [ "$kind" = sanitize ] && dir=build-asan
  echo "=== $kind: tests"
  log=$(mktemp)
  (cd "$top/$dir" && ctest --output-on-failure -j2) 2>&1 | tee "$log"
  p=$(sed -n 's/.* tests passed, \([0-9]*\) tests failed out of \([0-9]*\).*/\2 \1/p' "$log" | tail -1)
  if [ -z "$p" ]; then failed=$((failed + 1)); else
    set -- $p; passed=$((passed + $1 - $2)); failed=$((failed + $2)); fi
  rm -f "$log"
done
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
