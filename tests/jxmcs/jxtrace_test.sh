#!/bin/bash
# jxtrace against a running program: status lists it, on/off flip its trace
# words while it runs, show finds its trace file; bad arguments and unknown
# processes give a message and a non-zero status.
# Usage: jxtrace_test.sh JXTRACE HELPER
# Both run under $JX_TEST_EMULATOR when it is set.
set -u
JXTRACE=$1
HELPER=$2
jxtrace() { ${JX_TEST_EMULATOR:-} "$JXTRACE" "$@"; }
export JX_DATA_PATH=$(mktemp -d /tmp/jxtrace-test.XXXXXX)
unset JX_TRACE JX_TRACE_LEVEL
failures=0
helper_pid=
cleanup() {
  [ -n "$helper_pid" ] && kill "$helper_pid" 2>/dev/null
  rm -rf "$JX_DATA_PATH"
}
trap cleanup EXIT

fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# expect STATUS OUTPUT-PATTERN -- command...
expect() {
  local want=$1 pattern=$2
  shift 3
  local out rc
  out=$("$@" 2>&1)
  rc=$?
  [ "$rc" -eq "$want" ] || fail "'$*' exited $rc, expected $want: $out"
  [[ "$out" =~ $pattern ]] || fail "'$*' printed '$out', expected /$pattern/"
}

expect 0 "no running processes" -- jxtrace status
expect 2 "unknown command 'bogus'" -- jxtrace bogus
expect 2 "usage:" -- jxtrace
expect 2 "-p needs a process id" -- jxtrace on -p
expect 2 "-p needs a process id" -- jxtrace off -p 12x
expect 2 "--level needs a number" -- jxtrace on --level -3
expect 2 "unexpected argument 'verbose' for on" -- jxtrace on verbose
expect 2 "unexpected argument 'api' for off" -- jxtrace off api
expect 0 "jxtrace on" -- jxtrace --help

# Starts a helper that waits for its trace to be switched on from outside.
out_file=$JX_DATA_PATH/helper.out
start_helper() {
  ${JX_TEST_EMULATOR:-} "$HELPER" wait >"$out_file" &
  helper_pid=$!
  for _ in $(seq 100); do
    grep -q "^ready" "$out_file" 2>/dev/null && break
    sleep 0.1
  done
  grep -q "^ready $helper_pid" "$out_file" || fail "helper did not start"
}

start_helper

expect 0 "$helper_pid +[0-9]+ +0 +-1 +0x00000000 +0 +jxmcs_helper" -- jxtrace status
expect 1 "process 999999 has no trace slot" -- jxtrace on -p 999999 api
expect 0 "trace on for process $helper_pid \\(jxmcs_helper\\)" -- \
  jxtrace on -p "$helper_pid" parms --level 2
wait "$helper_pid"
rc=$?
[ "$rc" -eq 0 ] || fail "helper exited $rc"
grep -q "^enabled=1 level=2 options=0xC0000 override=0 shared=1 traceactive=1$" "$out_file" ||
  fail "helper saw: $(cat "$out_file")"
dead_pid=$helper_pid
helper_pid=

# The helper ended normally, so its slot was given back.
expect 1 "process $dead_pid has no trace slot" -- jxtrace off -p "$dead_pid"
expect 1 "no running processes" -- jxtrace off
expect 0 "^$JX_DATA_PATH/trace/jxmcs_helper\\.$dead_pid\\.trc$" -- jxtrace show -p "$dead_pid"
grep -q " | helper done$" "$JX_DATA_PATH/trace/jxmcs_helper.$dead_pid.trc" ||
  fail "trace file lacks the helper's line"
expect 1 "no trace file for process 999999" -- jxtrace show -p 999999

# off, and on for every process at once.
start_helper
expect 0 "trace off for process $helper_pid" -- jxtrace off
expect 0 "trace on for process $helper_pid" -- jxtrace on all --level 5
wait "$helper_pid"
helper_pid=
grep -q "^enabled=1 level=5 options=0xC0421 override=1 shared=1 traceactive=1$" "$out_file" ||
  fail "helper saw: $(cat "$out_file")"

if [ "$failures" -ne 0 ]; then
  echo "$failures failure(s)"
  exit 1
fi
echo "jxtrace tests passed"
