#!/bin/sh
# SPDX-License-Identifier: MIT
# Builds the fuzz targets with clang (AddressSanitizer + UndefinedBehaviorSanitizer + libFuzzer) and runs
# each for a bounded time. Usage: fuzz/run.sh [SECONDS_PER_TARGET] [BUILD_DIR]   (defaults: 60, build-fuzz)
# Exits non-zero when a target finds a crash; the reproducer is left in the build directory.
set -eu
seconds=${1:-60}
root=$(cd "$(dirname "$0")/.." && pwd)
build=${2:-$root/build-fuzz}
jobs=${FUZZ_BUILD_JOBS:-2}

# A build directory already configured for the fuzzers (CI's sanitizer build) is used as it is.
if ! grep -q '^OMBREL_BUILD_FUZZERS:BOOL=ON' "$build/CMakeCache.txt" 2>/dev/null; then
  cmake -S "$root" -B "$build" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DOMBREL_BUILD_FUZZERS=ON -DOMBREL_SANITIZE=ON \
    -DOMBREL_BUILD_TESTS=OFF -DOMBREL_BUILD_APPS=OFF >/dev/null
fi
cmake --build "$build" -j "$jobs" --target fuzz_image_reader fuzz_option_parser fuzz_agents fuzz_make_seeds \
  fuzz_object_stream fuzz_object_stream_seeds

corpus="$build/fuzz-corpus"
mkdir -p "$corpus/image_reader" "$corpus/option_parser" "$corpus/agents" "$corpus/object_stream"
"$build/fuzz/fuzz_make_seeds" "$corpus/image_reader"
"$build/fuzz/fuzz_object_stream_seeds" "$corpus/object_stream"
printf '0:100' >"$corpus/option_parser/band"
printf '10,20,300,200' >"$corpus/option_parser/region"
printf '2,2' >"$corpus/option_parser/step"

status=0
for target in image_reader option_parser agents object_stream; do
  echo "== fuzz_$target for ${seconds}s"
  ( cd "$build" && "$build/fuzz/fuzz_$target" -max_total_time="$seconds" -rss_limit_mb=2048 \
      -timeout=10 -print_final_stats=1 "$corpus/$target" ) || status=1
done
exit $status
