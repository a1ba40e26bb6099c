#!/usr/bin/env bash
# Builds everything (release: library, tests, tools, benchmarks) and runs the demo.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh build test bench
cmake --preset release >/dev/null
cmake --build --preset release
exec build/release/examples/qvdemo
