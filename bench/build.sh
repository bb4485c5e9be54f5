#!/bin/sh
# Builds the service as it is shipped, and the programs that measure it, into build/bench. The
# release keys there sign only the releases of the benchmarks.
set -eu
cd "$(dirname "$0")/.."
built=build/bench

for key in release-1 release-2; do
  scripts/make-development-key $built/keys/$key
done

cmake --preset release -B $built/release -DVANTRELL_LAB=ON -DVANTRELL_BENCH=ON \
  -DVANTRELL_RELEASE_KEY_1="$PWD/$built/keys/release-1.pub" \
  -DVANTRELL_RELEASE_KEY_2="$PWD/$built/keys/release-2.pub"
cmake --build $built/release
rm -rf $built/service
DESTDIR="$PWD/$built/service" cmake --install $built/release --prefix /usr --strip

for program in fleet growth hash_file json_memory json_parse scan_processes socket_client \
  start_child minimal_daemon minimal_server minimal_staging no_trim.so static_service \
  witness_files; do
  cp $built/release/bench/$program $built/
done
