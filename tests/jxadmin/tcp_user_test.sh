# jxadmin over TCP as a named user: the password from the environment or a
# named variable, a wrong one refused, and a user without the administrator
# right may look but not change.
#   tcp_user_test.sh BIN_DIR
source "$(dirname "$0")/lib.sh" "$1"
port=$(free_port)
qm_start QT --listen "127.0.0.1:$port"
echo "right-one" | "$BIN/jxqm" adduser QT alice --admin >/dev/null || fail "adduser alice"
echo "looker-pw" | "$BIN/jxqm" adduser QT bob >/dev/null || fail "adduser bob"
# TCP is TLS: the queue manager's own certificate is what the client trusts.
trust=(--trust "$JX_DATA_PATH/qmgrs/QT/qm.crt")
server=(-m QT --server "127.0.0.1:$port" "${trust[@]}")

JX_PASSWORD=right-one expect 0 jxadmin "${server[@]}" --user alice create queue T.Q
export ALICE_PW=right-one
expect 0 jxadmin "${server[@]}" --user alice --password-env ALICE_PW ping
expect 0 jxadmin --server "127.0.0.1:$port" "${trust[@]}" --user alice --password-env ALICE_PW show queues T.Q
has "T.Q"

# A wrong password: refused at the connect, one line, exit 2.
JX_PASSWORD=wrong expect 2 jxadmin "${server[@]}" --user alice show queues
[ "$(wc -l <<<"$ERR")" = 1 ] && grep -q "^jxadmin: QT: .* (reason 2035)$" <<<"$ERR" ||
  fail "wrong password line"
expect 2 jxadmin "${server[@]}" --user alice --password-env NO_SUCH_VARIABLE ping
has "NO_SUCH_VARIABLE is not set" ERR

# Without the administrator right: inquiries yes, changes no.
JX_PASSWORD=looker-pw expect 0 jxadmin "${server[@]}" --user bob show queues T.Q
JX_PASSWORD=looker-pw expect 2 jxadmin "${server[@]}" --user bob delete queue T.Q
has "not authorized (reason 2035)" ERR
JX_PASSWORD=right-one expect 0 jxadmin "${server[@]}" --user alice delete queue T.Q
echo "jxadmin over TCP: passed"
