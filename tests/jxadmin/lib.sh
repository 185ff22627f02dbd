# Shared by the jxadmin script tests: a fresh data root, queue managers
# started and always stopped, and checks on a command's status and output.
#   source lib.sh BIN_DIR
set -uo pipefail
BIN=$1
JX_DATA_PATH=$(mktemp -d)
export JX_DATA_PATH
STARTED=()
OUT="" ERR="" STATUS=0
# The system's Python: a version manager's shim in front of it costs seconds a call.
PYTHON=python3
[ -x /usr/bin/python3 ] && PYTHON=/usr/bin/python3

cleanup() {
  local q
  for q in "${STARTED[@]}"; do "$BIN/jxqm" stop "$q" >/dev/null 2>&1; done
  rm -rf "$JX_DATA_PATH"
}
trap cleanup EXIT

fail() {
  echo "FAILED: $*" >&2
  echo "--- stdout" >&2; echo "$OUT" >&2
  echo "--- stderr" >&2; echo "$ERR" >&2
  exit 1
}

# qm_start NAME [start options]: creates and starts a queue manager.
qm_start() {
  local name=$1; shift
  "$BIN/jxqm" create "$name" >/dev/null || fail "jxqm create $name"
  "$BIN/jxqm" start "$name" "$@" >/dev/null || fail "jxqm start $name"
  STARTED+=("$name")
}

# run PROGRAM ARGS...: a program of this build; output in OUT and ERR.
run() {
  local prog=$1; shift
  local errfile; errfile=$(mktemp)
  OUT=$(${JX_TEST_EMULATOR:-} "$BIN/$prog" "$@" 2>"$errfile")
  STATUS=$?
  ERR=$(cat "$errfile"); rm -f "$errfile"
}

# expect STATUS PROGRAM ARGS...: runs it and checks its exit status.
expect() {
  local want=$1; shift
  run "$@"
  [ "$STATUS" -eq "$want" ] || fail "$* exited $STATUS, not $want"
}

# has TEXT WHERE: WHERE (OUT or ERR) holds TEXT.
has() {
  local text=$1 where=${2:-OUT}
  grep -qF -- "$text" <<<"${!where}" || fail "$where lacks: $text"
}
lacks() {
  local text=$1 where=${2:-OUT}
  ! grep -qF -- "$text" <<<"${!where}" || fail "$where holds: $text"
}

# json_ok: OUT is one JSON document.
json_ok() {
  "$PYTHON" -m json.tool <<<"$OUT" >/dev/null || fail "not JSON"
}

# json QUERY: a Python expression over the document `d` read from OUT.
json() {
  "$PYTHON" -c "import json,sys; d=json.load(sys.stdin); print($1)" <<<"$OUT"
}

# A free TCP port on the loopback address.
free_port() {
  "$PYTHON" -c "import socket; s=socket.socket(); s.bind(('127.0.0.1',0)); print(s.getsockname()[1])"
}
