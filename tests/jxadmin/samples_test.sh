# The C samples against a live queue manager.
#   samples_test.sh BIN_DIR
source "$(dirname "$0")/lib.sh" "$1"
qm_start QS
expect 0 jxadmin -m QS create queue S.Q

expect 0 jxsample_create_delete_queue QS S.NEW
[ "$OUT" = $'create: reason 0 (no error)\ndelete: reason 0 (no error)' ] || fail "create and delete"
expect 1 jxsample_create_delete_queue QS S.Q
has "create: reason 2100 (object already exists)"

expect 0 jxsample_put_messages QS S.Q 4
expect 0 jxsample_inquire_depth QS S.Q
[ "$OUT" = "S.Q depth 4" ] || fail "depth"
expect 1 jxsample_inquire_depth QS NO.SUCH.Q
has "INQUIRE_QUEUE failed: reason 2085 (no such object)" ERR

expect 0 jxsample_put_get_bag QS S.Q
has "got order 4711: 12 widgets"

expect 0 jxsample_print_response QS S.Q
has "completion code 0, reason 0 (no error)"
has "  2016 string  'S.Q'"
has "     3 integer 4"

# Events: the watcher prints the create that happens while it waits.
expect 0 jxadmin -m QS change qmgr --configuration-events 1
"$BIN/jxsample_watch_events" QS 3 >"$JX_DATA_PATH/watch.out" 2>&1 &
watcher=$!
sleep 0.5
expect 0 jxadmin -m QS create queue S.EVENT
wait "$watcher" || fail "watcher exit"
grep -q "category 46: object created (4105) queue S.EVENT" "$JX_DATA_PATH/watch.out" ||
  fail "watcher: $(cat "$JX_DATA_PATH/watch.out")"
echo "samples: passed"
