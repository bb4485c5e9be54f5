#!/bin/sh
# Builds the JSON benchmarks, of time and of memory, and runs them.
set -eu
cd "$(dirname "$0")/.."
mkdir -p build/logs
bench/build.sh >build/logs/bench.log 2>&1 || { cat build/logs/bench.log >&2; exit 1; }
build/bench/json_parse
exec build/bench/json_memory
