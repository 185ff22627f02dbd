#!/usr/bin/env bash
# `jxadmin show queues` against 1, 10 and 50 queue managers at once, each
# its own jxqmgr on this machine. The baseline is the single queue manager
# in the same run: 50 should take at most 3 times as long. The queue
# managers are started and have served one round before anything counts.
# Repetitions of the three sizes are interleaved; the fastest of each
# counts (noise only ever adds time), and the median is shown beside it.
# The clock is the shell's own, so no process but jxadmin is in the time.
#   show_queues_fan_out.sh BIN_DIR [REPETITIONS]
set -euo pipefail
bin=$1
reps=${2:-15}
sizes=(1 10 50)
limit=3
JX_DATA_PATH=$(mktemp -d)
export JX_DATA_PATH
names=()
for i in $(seq 1 50); do names+=("BQ$i"); done
stop_all() {
  for q in "${names[@]}"; do "$bin/jxqm" stop "$q" >/dev/null 2>&1 & done
  wait
  rm -rf "$JX_DATA_PATH"
}
trap stop_all EXIT
setup() {
  "$bin/jxqm" create "$1" >/dev/null && "$bin/jxqm" start "$1" >/dev/null &&
    "$bin/jxqm" define "$1" "BENCH.Q" >/dev/null
}
export -f setup
export bin
printf '%s\n' "${names[@]}" | xargs -P 4 -I{} bash -c 'setup {}' || { echo "setup failed"; exit 1; }

list() { local IFS=,; echo "${names[*]:0:$1}"; }
# One run against the first N queue managers; its microseconds in `took`.
run() {
  local qmgrs start end
  qmgrs=$(list "$1")
  start=$EPOCHREALTIME
  "$bin/jxadmin" -m "$qmgrs" show queues >/dev/null || { echo "show queues failed for $1"; exit 1; }
  end=$EPOCHREALTIME
  took=$(( ${end/./} - ${start/./} ))
}
for n in "${sizes[@]}"; do run "$n"; done
declare -A times
for _ in $(seq "$reps"); do
  for n in "${sizes[@]}"; do
    run "$n"
    times[$n]+="$took "
  done
done
declare -A best median
for n in "${sizes[@]}"; do
  read -r best[$n] median[$n] < <(tr ' ' '\n' <<<"${times[$n]}" | grep . | sort -n |
    awk '{ t[NR] = $1 } END { print t[1], t[int((NR + 1) / 2)] }')
done
base=${best[1]}
for n in "${sizes[@]}"; do
  awk -v n="$n" -v t="${best[$n]}" -v b="$base" \
    -v m="${median[$n]}" -v mb="${median[1]}" \
    'BEGIN { printf "jxadmin show queues, %2d queue managers: %7.1f ms  (%.2fx one; median %.1f ms, %.2fx)\n", n, t / 1e3, t / b, m / 1e3, m / mb }'
done
awk -v t="${best[50]}" -v b="$base" -v limit="$limit" 'BEGIN {
  met = t / b <= limit
  printf "target: 50 queue managers within %dx one: %s (%.2fx)\n", limit, met ? "met" : "NOT met", t / b
  exit !met
}'
