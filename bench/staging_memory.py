#!/usr/bin/python3
"""Peak resident memory of the service after it has staged a large package, beside a small one."""

import service
from lab.releases import release
from lab.service_view import mebibytes
from rows import row

ROUNDS = 3
SIZES = {"1.1": 10, "1.2": 500}  # MiB of each version's package


def peak(machine, tree, version):
    process = service.restart(machine)
    machine.offer((tree / "offer.json").read_bytes())
    lines = len(machine.log())
    machine.send("CHECK")
    machine.wait_for_log(f"{version} staged and verified", 300, after=lines)
    service.wait_until_idle(process)
    return mebibytes(process, "VmHWM")


def main():
    service.build()
    peaks = {version: [] for version in SIZES}
    with service.scratch() as built, service.machine_with_service(built) as machine:
        trees = {version: release(version, "--ballast", str(size), built=built)
                 for version, size in SIZES.items()}
        for tree in trees.values():
            machine.publish(tree, offer=False)
        for _ in range(ROUNDS):
            for version, tree in trees.items():
                peaks[version].append(peak(machine, tree, version))
    small, large = (peaks[version] for version in SIZES)
    row("peak memory, 500 MiB staged", large, "10 MiB staged", small, "MiB", "at most 1 MiB more")


main()
