#!/bin/sh
# SPDX-License-Identifier: MIT
# Builds the fuzz targets with clang (AddressSanitizer + UndefinedBehaviorSanitizer + libFuzzer) and spreads a
# total time budget evenly over every target, each starting from its seeds in fuzz/corpus/<target>/ with its
# dictionary. Usage: fuzz/run.sh [TOTAL_SECONDS] [BUILD_DIR]   (defaults: 240, build-fuzz)
# Exits non-zero when a target finds a crash; the reproducer is left in the build directory. Copy it into
# fuzz/regressions/<target>/ and it is run by the test fuzz_<target>_inputs from then on.
set -eu
total=${1:-240}
root=$(cd "$(dirname "$0")/.." && pwd)
build=${2:-$root/build-fuzz}
jobs=${FUZZ_BUILD_JOBS:-2}
targets="image_reader option_parser object_stream agents"
seconds=$((total / 4))
[ "$seconds" -ge 1 ] || seconds=1

# A build directory already configured for the fuzzers (CI's sanitizer build) is used as it is.
if ! grep -q '^OMBREL_BUILD_FUZZERS:BOOL=ON' "$build/CMakeCache.txt" 2>/dev/null; then
  cmake -S "$root" -B "$build" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DOMBREL_BUILD_FUZZERS=ON -DOMBREL_SANITIZE=ON \
    -DOMBREL_BUILD_TESTS=OFF -DOMBREL_BUILD_APPS=OFF >/dev/null
fi
cmake --build "$build" -j "$jobs" --target fuzz_image_reader fuzz_option_parser fuzz_agents fuzz_object_stream

status=0
for target in $targets; do
  # New inputs go to the build's corpus; the committed seeds are read only.
  corpus="$build/fuzz-corpus/$target"
  mkdir -p "$corpus"
  dict=""
  [ -f "$root/fuzz/$target.dict" ] && dict="-dict=$root/fuzz/$target.dict"
  echo "== fuzz_$target for ${seconds}s"
  # shellcheck disable=SC2086
  ( cd "$build" && "$build/fuzz/fuzz_$target" -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=10 \
      -print_final_stats=1 $dict "$corpus" "$root/fuzz/corpus/$target" ) || status=1
done
exit $status
