#!/usr/bin/python3
"""Hashes 1 GiB from the page cache with the service's own code, beside other programs.

The rivals are openssl, sha256sum and plain libcrypto, which Python's hashlib calls in this process.
"""

import hashlib
import subprocess
import time

import service
from rows import row

ROUNDS = 7
BYTES = 1 << 30


def digest_by(*command):
    """The output without the name of the file."""
    printed = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout
    return printed.split()[-1 if "openssl" in command else 0]


def digest_by_libcrypto(path):
    with open(path, "rb", buffering=0) as stream:
        return hashlib.file_digest(stream, "sha256").hexdigest()


def main():
    service.build()
    with service.scratch() as folder:
        path = folder / "gibibyte"
        with open(path, "wb") as stream, open("/dev/urandom", "rb") as random:
            for _ in range(BYTES >> 20):
                stream.write(random.read(1 << 20))
        hashers = {"ours": lambda: digest_by(service.BUILT / "hash_file", path),
                   "openssl dgst": lambda: digest_by("openssl", "dgst", "-sha256", path),
                   "libcrypto": lambda: digest_by_libcrypto(path),
                   "sha256sum": lambda: digest_by("sha256sum", path)}
        times = {name: [] for name in hashers}
        digests = set()
        for _ in range(ROUNDS):
            for name, hasher in hashers.items():
                start = time.monotonic()
                digests.add(hasher())
                times[name].append(time.monotonic() - start)
    if len(digests) != 1:
        raise RuntimeError(f"the digests differ: {digests}")
    ours = times.pop("ours")
    for name, goal in ("openssl dgst", "at most 1.00"), ("libcrypto", "at most 1.02"), \
            ("sha256sum", "-"):
        row("hash of 1 GiB", ours, name, times[name], "s", goal)


main()
