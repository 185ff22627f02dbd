# jxadmin events: what waits on the event queues, shown once (as lines or
# one JSON document), and --follow showing each event as it arrives.
#   events_test.sh BIN_DIR
source "$(dirname "$0")/lib.sh" "$1"
qm_start QE

# Performance events: depth high at 50% of 4, then queue full.
expect 0 jxadmin -m QE create queue EV.Q --max-depth 4 --depth-high-limit 50 \
  --depth-high-event 1 --full-event 1
run jxsample_put_messages QE EV.Q 5
expect 0 jxadmin -m QE events
has "  QE  performance  queue depth high (reason 4101)  name=EV.Q  current-depth=2  max-depth=4"
has "  QE  performance  queue full (reason 4103)  name=EV.Q"
grep -qE '^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}\.[0-9]{2}\.[0-9]{2}  QE ' <<<"$OUT" || fail "date"
# Taken off the queues: a second look finds none.
expect 0 jxadmin -m QE events
[ -z "$OUT" ] || fail "events shown twice"

# Configuration events, followed as they arrive.
expect 0 jxadmin -m QE change qmgr --configuration-events 1
log="$JX_DATA_PATH/follow.out"
${JX_TEST_EMULATOR:-} "$BIN/jxadmin" -m QE events --follow >"$log" 2>&1 &
follower=$!
sleep 0.5
expect 0 jxadmin -m QE create queue EV.NEW
for _ in $(seq 50); do grep -q "object created" "$log" && break; sleep 0.1; done
grep -q "  QE  configuration  object created (reason 4105)  name=EV.NEW" "$log" || fail "followed: $(cat "$log")"
kill -TERM "$follower"
wait "$follower" || fail "follower exit $?"

expect 0 jxadmin -m QE delete queue EV.NEW
expect 0 jxadmin -m QE --json events
json_ok
[ "$(json "[(e['category'], e['reason'], e['items']['name']) for e in d['events']]")" = \
  "[('configuration', 4107, 'EV.NEW')]" ] || fail "events as JSON"
expect 1 jxadmin -m QE,NOSUCH events
has "jxadmin: NOSUCH: queue manager not available (reason 2059)" ERR
echo "jxadmin events: passed"
