#!/bin/sh
# Builds the JSON benchmark and runs it.
set -eu
cd "$(dirname "$0")/.."
mkdir -p build/logs
bench/build.sh >build/logs/bench.log 2>&1 || { cat build/logs/bench.log >&2; exit 1; }
exec build/bench/json_parse
