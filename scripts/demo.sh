#!/usr/bin/env bash
# The main job: installs what is needed, builds, and runs an administration
# session on a queue manager of its own under a temporary data root: queues
# created, messages put, the queues shown as a table and as JSON, an event
# seen as it arrives, the metrics, and the queue manager stopped.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/install-deps.sh"
"$top/scripts/build.sh" native >/dev/null
export PATH="$top/build/bin:$PATH"
JX_DATA_PATH=$(mktemp -d)
export JX_DATA_PATH
qm=DEMO
follower=""
finish() {
  [ -n "$follower" ] && kill "$follower" 2>/dev/null
  jxqm stop "$qm" >/dev/null 2>&1 || true
  rm -rf "$JX_DATA_PATH"
}
trap finish EXIT
step() {
  echo
  echo "\$ $(printf "%q " "$@")"
  "$@"
}

echo "data root: $JX_DATA_PATH"
step jxqm create "$qm"
step jxqm start "$qm"
step jxadmin -m "$qm" ping
step jxadmin -m "$qm" change qmgr --configuration-events 1
step jxadmin -m "$qm" create queue ORDERS --max-depth 10 --description "incoming orders" \
  --depth-high-limit 50 --depth-high-event 1
step jxadmin -m "$qm" create queue INVOICES --description "invoices out"
step jxsample_put_messages "$qm" ORDERS 4
step jxsample_put_messages "$qm" INVOICES 2
step jxadmin -m "$qm" show queues
step jxadmin -m "$qm" --json show queues 'ORDERS'

# Events as they arrive: a follower in the background, then a change.
echo
echo "\$ jxadmin -m $qm events --follow &    # then: 2 more orders, a new queue"
events=$JX_DATA_PATH/events.out
jxadmin -m "$qm" events --follow >"$events" 2>&1 &
follower=$!
sleep 0.5
jxsample_put_messages "$qm" ORDERS 2 >/dev/null
jxadmin -m "$qm" create queue RETURNS >/dev/null
for _ in $(seq 50); do grep -q "object created" "$events" && break; sleep 0.1; done
kill -TERM "$follower"
wait "$follower" || true
follower=""
cat "$events"

step jxadmin -m "$qm" show status 'ORDERS'
step jxadmin -m "$qm" show connections
echo
echo "\$ jxadmin -m $qm metrics | grep ORDERS"
jxadmin -m "$qm" metrics | grep ORDERS
step jxadmin -m "$qm" show queues NO.SUCH.QUEUE || echo "(exit status $?)"
step jxqm stop "$qm"
