#!/usr/bin/python3
"""Hashes 1 GiB from the page cache, with the service's own code and with openssl."""

import statistics
import subprocess
import time

import service

ROUNDS = 7
BYTES = 1 << 30


def seconds(command, expected):
    start = time.monotonic()
    printed = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout
    taken = time.monotonic() - start
    if printed.split()[-1 if "openssl" in command else 0] != expected:
        raise RuntimeError(f"{command[0]} gave another digest")
    return taken


def main():
    service.build()
    with service.scratch() as folder:
        path = folder / "gibibyte"
        with open(path, "wb") as stream, open("/dev/urandom", "rb") as random:
            for _ in range(BYTES >> 20):
                stream.write(random.read(1 << 20))
        expected = subprocess.run(["sha256sum", path], check=True, stdout=subprocess.PIPE,
                                  text=True).stdout.split()[0]
        ours, theirs = [], []
        for _ in range(ROUNDS):
            ours.append(seconds([service.BUILT / "hash_file", path], expected))
            theirs.append(seconds(["openssl", "dgst", "-sha256", path], expected))
    our, their = statistics.median(ours), statistics.median(theirs)
    print(f"1 GiB: ours {our:.3f} s ({1 / our:.2f} GiB/s), openssl dgst -sha256 {their:.3f} s "
          f"({1 / their:.2f} GiB/s), ratio {our / their:.2f}")


main()
