#!/usr/bin/python3
"""The scan for clients among many processes, and the start of a child, beside minimal programs.

The scan runs in a pid namespace of its own with so many idle processes. Its rivals are a loop over
the links of /proc in C, and pgrep, which is started for each scan. The rival of the start is bare
posix_spawnp(); the service also collects the output of the child. Needs root, for the namespace.
"""

import subprocess

import service
from rows import row

COUNTS = {200: 401, 5000: 41}  # processes, and rounds
RESIDENT = {"": 0, ", 1 GiB resident": 1024}  # MiB
STARTS = 401


def measure(*command):
    """The columns that a program of build/bench prints, in milliseconds."""
    printed = subprocess.run([*map(str, command)], check=True, stdout=subprocess.PIPE,
                             text=True).stdout
    return zip(*([float(word) / 1000 for word in line.split()] for line in printed.splitlines()))


def main():
    service.build()
    for count, rounds in COUNTS.items():
        ours, loop, pgrep = measure("unshare", "--pid", "--fork", "--mount-proc",
                                    service.BUILT / "scan_processes", count, rounds)
        name = f"scan for clients, {count} processes"
        row(name, ours, "a loop in C", loop, "ms")
        row(name, ours, "pgrep", pgrep, "ms")
    for name, mebibytes in RESIDENT.items():
        ours, bare = measure(service.BUILT / "start_child", mebibytes, STARTS)
        row("start of a child" + name, ours, "bare posix_spawnp", bare, "ms")


main()
