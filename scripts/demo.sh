#!/usr/bin/env bash
# Builds everything (release) and runs the demo.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh build test
cmake --preset release -DQVLIB_BUILD_BENCH=OFF >/dev/null
cmake --build --preset release
exec build/release/examples/qvdemo
