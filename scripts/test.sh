#!/usr/bin/env bash
# Builds and runs every test: the suite under the release, asan and tsan
# presets, then each fuzz target for a bounded time.
# QV_PRESETS="release asan" and QV_FUZZ_SECONDS=N narrow a run.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh build test bench
presets=${QV_PRESETS:-"release asan tsan"}
fuzz_seconds=${QV_FUZZ_SECONDS:-60}
jobs=$(nproc)
for p in $presets; do
  echo "=== preset $p"
  # The release build also compiles the benchmarks, so they cannot rot.
  cmake --preset "$p" >/dev/null
  cmake --build --preset "$p" -j "$jobs"
  ctest --preset "$p" -j "$jobs" --timeout 900
done
if [[ "$fuzz_seconds" != 0 ]]; then
  echo "=== fuzz targets, ${fuzz_seconds}s each"
  cmake --preset fuzz >/dev/null
  cmake --build --preset fuzz -j "$jobs"
  shopt -s nullglob
  for f in build/fuzz/fuzz/fuzz_*; do
    [[ -x "$f" ]] || continue
    name=$(basename "$f")
    corpus=fuzz/corpus/${name#fuzz_}
    mkdir -p "$corpus"
    work=$(mktemp -d)
    echo "--- $name"
    "$f" -max_total_time="$fuzz_seconds" -print_final_stats=1 "$work" "$corpus" 2>&1 | tail -n 5
    rm -rf "$work"
  done
fi
echo "all tests passed"
