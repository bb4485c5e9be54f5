#!/bin/sh
# Builds the JSON benchmark into build/bench and runs it. Needs the package nlohmann-json3-dev.
set -eu
cd "$(dirname "$0")/.."
mkdir -p build/bench
g++ -std=c++20 -O2 -I . -o build/bench/json_parse \
  bench/json_parse.cpp json/json_parser.cpp json/json_value.cpp
exec build/bench/json_parse
