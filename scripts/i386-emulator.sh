#!/usr/bin/env bash
# Prints the emulator that runs i386 programs on this machine, or nothing when
# the kernel runs them itself (found by running a small i386 program). When
# they are to be emulated it says so in one line on stderr, installing
# qemu-user first if it is missing.
#   JX_I386_EMULATE=1   emulate even where the kernel runs i386 programs
#   JX_I386_PROBE=CMD   run CMD instead of the small program; its success
#                       means the kernel runs i386 programs
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)

kernel_runs_i386() {
  if [ -n "${JX_I386_PROBE:-}" ]; then
    $JX_I386_PROBE >/dev/null 2>&1
    return
  fi
  local tmp rc=0
  tmp=$(mktemp -d)
  printf 'int main(void) { return sizeof(void *) == 4 ? 0 : 1; }\n' >"$tmp/probe.c"
  if ! gcc -m32 -o "$tmp/probe" "$tmp/probe.c" 2>"$tmp/log"; then
    echo "cannot build an i386 program (is gcc-multilib installed?):" >&2
    cat "$tmp/log" >&2
    rm -rf "$tmp"
    exit 1
  fi
  "$tmp/probe" >/dev/null 2>&1 || rc=$?
  rm -rf "$tmp"
  return "$rc"
}

case "${JX_I386_EMULATE:-0}" in
  1) why="JX_I386_EMULATE=1" ;;
  0) kernel_runs_i386 && exit 0
     why="this kernel does not run 32-bit programs" ;;
  *) echo "JX_I386_EMULATE must be 0 or 1, not '$JX_I386_EMULATE'" >&2; exit 2 ;;
esac
command -v qemu-i386 >/dev/null || "$here/apt-install.sh" qemu-user >&2
if ! qemu=$(command -v qemu-i386); then
  echo "qemu-i386 is missing although qemu-user is installed" >&2
  exit 1
fi
echo "i386: $why, so the i386 tests and the programs they start run under $qemu" >&2
echo "$qemu"
