#!/bin/sh
# SPDX-License-Identifier: MIT
# The long run: every agent prepared once and run on changing images (100,000 runs each by default), with
# the heap blocks held, the blob pools' chunks and the resident size printed after 1,000 runs and at the
# end. Fails when any of them grew after the first 1,000 runs (resident size beyond RSS_SLACK_KIB).
# Usage: tools/longrun.sh [RUNS] [RSS_SLACK_KIB] [AGENT...]    (build directory: BUILD_DIR, default build)
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build}
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
fi
cmake --build "$build" -j "${BUILD_JOBS:-2}" --target ombrel_longrun >/dev/null
runs=${1:-100000}
slack=${2:-256}
[ $# -gt 0 ] && shift
[ $# -gt 0 ] && shift
exec "$build/testing/reliability/ombrel_longrun" "$runs" "$slack" "$@"
