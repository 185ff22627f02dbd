#!/usr/bin/env bash
# Queue-manager benchmarks against their floors (Unix-socket echo, redis
# LPUSH+RPOP) in one run. Installs redis-server when it is missing.
#   scripts/bench-qmgr.sh [extra Google Benchmark flags]
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
if ! command -v redis-server >/dev/null; then
  sudo=""; [ "$(id -u)" -ne 0 ] && sudo=sudo
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq redis-server >/dev/null
fi
"$top/scripts/build.sh" native >/dev/null
exec "$top/build/bin/qmgr_bench" --benchmark_min_time=2 "$@"
