#!/usr/bin/env bash
# The main job: installs what is needed, builds, runs a small program with the
# API trace switched on from the environment, and shows the trace it wrote.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/install-deps.sh"
"$top/scripts/build.sh" native >/dev/null
root=$(mktemp -d)
echo "--- program output"
JX_DATA_PATH="$root" JX_TRACE=api "$top/build/bin/jxsample_pad_trim"
echo "--- trace written by it ($root/trace)"
cat "$root"/trace/*.trc
