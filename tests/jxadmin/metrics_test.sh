# jxadmin metrics: the Prometheus text format checked by promtool, and the
# same served at /metrics, scraped while messages flow.
#   metrics_test.sh BIN_DIR
source "$(dirname "$0")/lib.sh" "$1"
command -v promtool >/dev/null || fail "promtool missing: run scripts/install-deps.sh --tests"
qm_start QM1
qm_start QM2
expect 0 jxadmin -m QM1 create queue MET.Q
expect 0 jxsample_put_messages QM1 MET.Q 5

expect 0 jxadmin -m QM1,QM2 metrics
promtool check metrics <<<"$OUT" || fail "promtool refused the metrics"
has 'jx_qmgr_up{qmgr="QM1"} 1'
has 'jx_qmgr_up{qmgr="QM2"} 1'
has 'jx_queue_depth{qmgr="QM1",queue="MET.Q"} 5'
has 'jx_queue_messages_put_total{qmgr="QM1",queue="MET.Q"} 5'
has 'jx_queue_oldest_message_age_seconds{qmgr="QM2",queue="SYSTEM.ADMIN.COMMAND.QUEUE"} -1'
has '# TYPE jx_queue_messages_got_total counter'
grep -qE '^jx_qmgr_connections\{qmgr="QM1"\} [1-9]' <<<"$OUT" || fail "connections"

# A queue manager that is down: up 0, its failure named, exit 1.
"$BIN/jxqm" stop QM2 >/dev/null
expect 1 jxadmin -m QM1,QM2 metrics
has 'jx_qmgr_up{qmgr="QM2"} 0'
has "jxadmin: QM2: queue manager not available (reason 2059)" ERR
promtool check metrics <<<"$OUT" || fail "promtool refused the metrics of a partial scrape"

# Served over HTTP on a port the system picks.
errlog="$JX_DATA_PATH/serve.err"
${JX_TEST_EMULATOR:-} "$BIN/jxadmin" -m QM1 metrics --listen 127.0.0.1:0 2>"$errlog" &
server=$!
for _ in $(seq 50); do grep -q "serving" "$errlog" && break; sleep 0.1; done
url=$(sed -n 's/^jxadmin: serving //p' "$errlog")
[ -n "$url" ] || fail "no address: $(cat "$errlog")"
"$BIN/jxsample_put_messages" QM1 MET.Q 400 >/dev/null &
putter=$!
first=$(curl -sf "$url") || fail "scrape"
wait "$putter"
second=$(curl -sf "$url") || fail "second scrape"
grep -q 'jx_queue_depth{qmgr="QM1",queue="MET.Q"} 405' <<<"$second" || fail "depth after the puts"
promtool check metrics <<<"$first" || fail "promtool refused the first scrape"
[ "$(curl -s -o /dev/null -w '%{http_code}' "${url%/metrics}/other")" = 404 ] || fail "not 404"
[ "$(curl -s -o /dev/null -w '%{http_code}' -H "X-Big: $(head -c 9000 /dev/zero | tr '\0' a)" "$url")" = 431 ] ||
  fail "oversized request not refused"
[ "$(curl -s -o /dev/null -w '%{http_code}' -X POST "$url")" = 405 ] || fail "POST not 405"
kill -TERM "$server"
wait "$server" || fail "server exit $?"
echo "jxadmin metrics: passed"
