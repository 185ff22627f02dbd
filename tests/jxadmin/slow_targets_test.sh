# Queue managers that do not answer hold up none of the others: one more
# than jxadmin's pool of workers (4 a CPU) hangs at the hello, and all of
# them are still connected at once while the real one answers.
#   slow_targets_test.sh BIN_DIR
source "$(dirname "$0")/lib.sh" "$1"
qm_start QA
slow=$(( $(getconf _NPROCESSORS_ONLN) * 4 + 1 ))
mkdir -p "$JX_DATA_PATH/qmgrs/SLOW"
seen="$JX_DATA_PATH/seen"
# Accepts and never answers; once `slow` connections are open together (or
# after 60 s) it closes them all and writes how many it had at most.
"$PYTHON" - "$JX_DATA_PATH/qmgrs/SLOW/qm.sock" "$slow" "$seen" <<'PY' &
import socket, sys, time
path, want, seen = sys.argv[1], int(sys.argv[2]), sys.argv[3]
s = socket.socket(socket.AF_UNIX)
s.bind(path)
s.listen(want + 8)
s.settimeout(60)
held = []
end = time.time() + 60
try:
    while len(held) < want and time.time() < end:
        held.append(s.accept()[0])
except socket.timeout:
    pass
open(seen, "w").write(str(len(held)))
for c in held:
    c.close()
PY
fake=$!
until [ -S "$JX_DATA_PATH/qmgrs/SLOW/qm.sock" ]; do sleep 0.05; done
targets=QA$(printf ',SLOW%.0s' $(seq "$slow"))
expect 1 jxadmin -m "$targets" show queues SYSTEM.DEFAULT.LOCAL.QUEUE
wait "$fake"
[ "$(cat "$seen")" = "$slow" ] || fail "$(cat "$seen") of $slow slow targets connected at once"
[ "$(awk 'NR > 1 {print $1, $2}' <<<"$OUT")" = "QA SYSTEM.DEFAULT.LOCAL.QUEUE" ] || fail "the real queue manager's row"
[ "$(grep -c '^jxadmin: SLOW: ' <<<"$ERR")" = "$slow" ] || fail "one failure line per slow target"
echo "jxadmin slow targets: passed"
