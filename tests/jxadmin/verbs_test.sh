# Every command verb of jxadmin against one real queue manager: tables,
# JSON, the refusals the command server gives and the exit statuses.
#   verbs_test.sh BIN_DIR
source "$(dirname "$0")/lib.sh" "$1"
qm_start QM1

expect 0 jxadmin -m QM1 ping
has "QM1: queue manager answers"

# Create, refuse a second create, replace, change, copy.
expect 0 jxadmin -m QM1 create queue APP.Q1 --max-depth 5000 --description "orders in"
has "QM1: queue created"
expect 2 jxadmin -m QM1 create queue APP.Q1
has "jxadmin: QM1: object already exists (reason 2100)" ERR
expect 0 jxadmin -m QM1 create queue APP.Q1 --replace --max-depth 10 --description "orders in"
expect 0 jxadmin -m QM1 change queue APP.Q1 --max-depth 20
expect 0 jxadmin -m QM1 copy queue APP.Q1 APP.Q2 --description copied
expect 0 jxsample_put_messages QM1 APP.Q1 3

# The table: a header of attribute words, one row a queue.
expect 0 jxadmin -m QM1 show queues 'APP.*'
read -r -a header <<<"$(head -1 <<<"$OUT")"
[ "${header[*]:0:4}" = "name type current-depth max-depth" ] || fail "header ${header[*]}"
row=$(grep '^APP.Q1 ' <<<"$OUT") || fail "no APP.Q1 row"
read -r -a cells <<<"$row"
[ "${cells[2]}" = 3 ] && [ "${cells[3]}" = 20 ] || fail "APP.Q1 row: $row"
[ "$(grep -c '^APP\.' <<<"$OUT")" = 2 ] || fail "two queues match APP.*"

# The same as JSON, keyed by the same words.
expect 0 jxadmin -m QM1 --json show queues 'APP.*'
json_ok
[ "$(json "d['status']")" = ok ] || fail "status"
q1=$(json "[o for o in d['queue-managers'][0]['objects'] if o['name']=='APP.Q1'][0]")
[ "$(json "[(o['current-depth'],o['max-depth'],o['description']) for o in d['queue-managers'][0]['objects'] if o['name']=='APP.Q2'][0]")" = "(0, 20, 'copied')" ] ||
  fail "APP.Q2 as JSON"
grep -q "'current-depth': 3" <<<"$q1" || fail "APP.Q1 as JSON: $q1"

expect 0 jxadmin -m QM1 show status APP.Q1 --attrs name,current-depth,oldest-message-age
[ "$(head -1 <<<"$OUT" | tr -s ' ')" = "name current-depth oldest-message-age" ] || fail "--attrs"
read -r -a cells <<<"$(tail -1 <<<"$OUT")"
[ "${cells[1]}" = 3 ] && [ "${cells[2]}" -ge 0 ] || fail "status row"
# A table asks only for its columns; a queue word a status lacks is left out,
# and a queue table shows exactly the columns it asked for.
expect 0 jxadmin -m QM1 show status APP.Q1 --attrs name,max-depth
[ "$OUT" = "name
APP.Q1" ] || fail "status without max-depth: $OUT"
expect 0 jxadmin -m QM1 show queues APP.Q1 --attrs max-depth,name
[ "$(tr -s ' ' <<<"$OUT")" = "max-depth name
20 APP.Q1" ] || fail "queue columns: $OUT"

# A queue with messages is not deleted without purge; statistics reset.
expect 2 jxadmin -m QM1 delete queue APP.Q1
has "queue not empty (reason 2055)" ERR
expect 0 jxadmin -m QM1 reset stats 'APP.Q1'
read -r -a cells <<<"$(tail -1 <<<"$OUT")"
[ "${cells[0]}" = APP.Q1 ] && [ "${cells[1]}" = 3 ] || fail "reset stats row"
expect 0 jxadmin -m QM1 --json reset stats 'APP.Q1'
[ "$(json "d['queue-managers'][0]['objects'][0]['messages-put']")" = 0 ] || fail "stats kept"
expect 0 jxadmin -m QM1 clear queue APP.Q1
expect 0 jxadmin -m QM1 --json show queues APP.Q1
[ "$(json "d['queue-managers'][0]['objects'][0]['current-depth']")" = 0 ] || fail "not cleared"
expect 0 jxsample_put_messages QM1 APP.Q1 2
expect 0 jxadmin -m QM1 delete queue APP.Q1 --purge

# An unknown queue: a failure line with words and number, exit 2, and the
# JSON document says the same.
expect 2 jxadmin -m QM1 show queues APP.Q1
has "jxadmin: QM1: no such object (reason 2085)" ERR
[ -z "$OUT" ] || fail "output for a failure"
expect 2 jxadmin -m QM1 --json show queues 'NONE.*'
json_ok
[ "$(json "d['status'], d['queue-managers'][0]['errors'][0]['reason']")" = "failed 2085" ] ||
  fail "JSON failure"
# A parameter in error is named by its word.
expect 2 jxadmin -m QM1 create queue BAD.Q --max-depth 5 --depth-high-limit 101
has "takes a number from 0 to 100" ERR
expect 2 jxadmin -m QM1 change queue APP.Q2 --type model --max-depth 30
has "jxadmin: QM1: parameter value not valid (reason 4004), parameter type" ERR
expect 0 jxadmin -m QM1 delete queue APP.Q2

expect 0 jxadmin -m QM1 show qmgr
has "QM1"
expect 0 jxadmin -m QM1 --json show qmgr --attrs all
[ "$(json "d['queue-managers'][0]['objects'][0]['name']")" = QM1 ] || fail "qmgr name"
expect 0 jxadmin -m QM1 change qmgr --description "first queue manager"
expect 0 jxadmin -m QM1 --json show qmgr
[ "$(json "d['queue-managers'][0]['objects'][0]['description']")" = "first queue manager" ] ||
  fail "qmgr description"

# Connections: a watcher holds one; stopping it ends the watcher's wait.
"$BIN/jxsample_watch_events" QM1 20 >"$JX_DATA_PATH/watch.out" 2>&1 &
watcher=$!
for _ in $(seq 50); do
  expect 0 jxadmin -m QM1 --json show connections
  id=$(json "[o['id'] for o in d['queue-managers'][0]['objects'] if o['application']=='jxsample_watch_events'][0]" 2>/dev/null) && break
  sleep 0.1
done
[ -n "${id:-}" ] || fail "watcher not listed"
expect 0 jxadmin -m QM1 show connections
has "$id"
expect 0 jxadmin -m QM1 stop connection "$id"
has "connection stopped"
wait "$watcher"
grep -q "reason 2009" "$JX_DATA_PATH/watch.out" || fail "watcher not stopped: $(cat "$JX_DATA_PATH/watch.out")"
expect 2 jxadmin -m QM1 stop connection 0123456789ABCDEF
has "no such object (reason 2085)" ERR

# Mistakes on the command line: a message and exit 2, nothing sent.
expect 2 jxadmin -m QM1 create queue X.Q --no-such-word 1
has "no settable queue attribute is called no-such-word" ERR
expect 2 jxadmin -m QM1 create queue X.Q --max-depth lots
expect 2 jxadmin -m QM1 show queues A B
expect 2 jxadmin show queues
has "no queue manager" ERR
expect 2 jxadmin -m QM1 --json show queues X.Q
[ "$(json "d['queue-managers'][0]['errors'][0]['reason']")" = 2085 ] || fail "X.Q was created"

expect 2 jxadmin -m QM1 --wait soon ping
has "--wait takes milliseconds" ERR
expect 0 jxadmin -m QM1 --wait 5000 ping

# A queue manager without its command server, and a stopped one.
qm_start QN --no-command-server
expect 2 jxadmin -m QN show queues
[ "$ERR" = "jxadmin: QN: command server not running (reason 2322)" ] || fail "no command server"
"$BIN/jxqm" stop QM1 >/dev/null
expect 2 jxadmin -m QM1 ping
has "jxadmin: QM1: queue manager not available (reason 2059)" ERR
echo "jxadmin verbs: passed"
