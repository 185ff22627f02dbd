#!/usr/bin/env bash
# `jxadmin show queues` against 1, 10 and 50 queue managers at once, each
# its own jxqmgr on this machine. The baseline is the single queue manager
# in the same run: 50 should take at most 3 times as long. Repetitions of
# the three sizes are interleaved; the fastest of each counts (noise only
# ever adds time).
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
for q in "${names[@]}"; do
  "$bin/jxqm" create "$q" >/dev/null
  "$bin/jxqm" start "$q" >/dev/null
  "$bin/jxqm" define "$q" "BENCH.Q" >/dev/null
done

list() { local IFS=,; echo "${names[*]:0:$1}"; }
now_ns() { date +%s%N; }
declare -A best
for n in "${sizes[@]}"; do best[$n]=999999999999; done
for _ in $(seq "$reps"); do
  for n in "${sizes[@]}"; do
    qmgrs=$(list "$n")
    start=$(now_ns)
    "$bin/jxadmin" -m "$qmgrs" show queues >/dev/null || { echo "show queues failed for $n"; exit 1; }
    took=$(( $(now_ns) - start ))
    [ "$took" -lt "${best[$n]}" ] && best[$n]=$took
  done
done
base=${best[1]}
for n in "${sizes[@]}"; do
  awk -v n="$n" -v t="${best[$n]}" -v b="$base" \
    'BEGIN { printf "jxadmin show queues, %2d queue managers: %7.1f ms  (%.2fx one)\n", n, t / 1e6, t / b }'
done
awk -v t="${best[50]}" -v b="$base" -v limit="$limit" 'BEGIN {
  met = t / b <= limit
  printf "target: 50 queue managers within %dx one: %s (%.2fx)\n", limit, met ? "met" : "NOT met", t / b
  exit !met
}'
