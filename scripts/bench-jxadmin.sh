#!/usr/bin/env bash
# jxadmin against 1, 10 and 50 queue managers (bench/jxadmin): builds, then
# reports each time and whether 50 stay within 3 times one.
#   scripts/bench-jxadmin.sh [REPETITIONS]
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/build.sh" native >/dev/null
exec "$top/bench/jxadmin/show_queues_fan_out.sh" "$top/build/bin" "$@"
