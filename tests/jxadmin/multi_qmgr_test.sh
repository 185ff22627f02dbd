# Three queue managers at once: one merged table with a queue-manager
# column, one JSON document, and a partial result when one is down.
#   multi_qmgr_test.sh BIN_DIR
source "$(dirname "$0")/lib.sh" "$1"
for q in QA QB QC; do qm_start $q; done

expect 0 jxadmin -m QA,QB,QC create queue SHARED.Q --max-depth 7
[ "$(grep -c ': queue created' <<<"$OUT")" = 3 ] || fail "three creates"
expect 0 jxsample_put_messages QB SHARED.Q 2

expect 0 jxadmin -m QA,QB,QC show queues SHARED.Q
[ "$(head -1 <<<"$OUT" | awk '{print $1, $2}')" = "queue-manager name" ] || fail "header"
# Rows in the order the queue managers were named, each with its own depth.
[ "$(tail -n +2 <<<"$OUT" | awk '{print $1 ":" $4}' | tr '\n' ' ')" = "QA:0 QB:2 QC:0 " ] ||
  fail "merged rows"

expect 0 jxadmin -m QA,QB,QC --json show queues SHARED.Q
json_ok
[ "$(json "[(q['queue-manager'], q['objects'][0]['current-depth']) for q in d['queue-managers']]")" = \
  "[('QA', 0), ('QB', 2), ('QC', 0)]" ] || fail "JSON per queue manager"

# One queue manager down: the others answer, exit 1, one failure line.
"$BIN/jxqm" stop QC >/dev/null
expect 1 jxadmin -m QA,QB,QC show queues SHARED.Q
[ "$(tail -n +2 <<<"$OUT" | awk '{print $1}' | tr '\n' ' ')" = "QA QB " ] || fail "partial rows"
[ "$ERR" = "jxadmin: QC: queue manager not available (reason 2059)" ] || fail "one failure line"
expect 1 jxadmin -m QA,QC --json ping
[ "$(json "d['status']")" = partial ] || fail "partial status"
# A reply that fails on one queue manager only: partial as well.
expect 1 jxadmin -m QA,QB delete queue SHARED.Q
has "QA: queue deleted"
has "jxadmin: QB: queue not empty (reason 2055)" ERR
expect 2 jxadmin -m QC,NOSUCH ping
echo "jxadmin several queue managers: passed"
