#!/bin/sh
# Builds the service as it is shipped, and the programs that measure it, into build/bench. The
# release keys there sign only the releases of the benchmarks.
set -eu
cd "$(dirname "$0")/.."
built=build/bench
mkdir -p $built/keys

for key in release-1 release-2; do
  [ ! -e $built/keys/$key.pub ] || continue
  openssl genrsa -out $built/keys/$key.pem 2048 2>/dev/null
  openssl rsa -in $built/keys/$key.pem -pubout -out $built/keys/$key.pub 2>/dev/null
done

cmake --preset release -B $built/release -DBUILD_TESTING=OFF -DVANTRELL_LAB=ON \
  -DVANTRELL_RELEASE_KEY_1="$PWD/$built/keys/release-1.pub" \
  -DVANTRELL_RELEASE_KEY_2="$PWD/$built/keys/release-2.pub"
cmake --build $built/release -j "$(nproc)" --target vantrell-harbor-updated stand-in-client
rm -rf $built/service
DESTDIR="$PWD/$built/service" cmake --install $built/release --prefix /usr --strip

# --as-needed: hash_file must not load libraries that it does not use.
g++ -std=c++20 -O2 -I . -o $built/hash_file bench/hash_file.cpp $built/release/libvantrell_core.a \
  -Wl,--as-needed -lgnutls
g++ -std=c++20 -O2 -I . -pthread -o $built/socket_client bench/socket_client.cpp
gcc -O2 -pthread -o $built/minimal_server bench/minimal_server.c
gcc -O2 -shared -fPIC -o $built/no_trim.so bench/no_trim.c
