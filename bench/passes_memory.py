#!/usr/bin/python3
"""Resident memory at the peak of many check passes at once and after them.

The rival is the same service with a malloc_trim() that does nothing.
"""

import service
from lab.machine import SERVICE, SOCKET
from lab.releases import release
from lab.service_view import mebibytes
from rows import row

PASSES = 128
DROP_IN = f"/run/systemd/system/{SERVICE}.d/no-trim.conf"


def use_trim(machine, trim):
    if trim:
        machine.run(["rm", "-f", DROP_IN])
    else:
        machine.write(DROP_IN, "[Service]\nEnvironment=LD_PRELOAD=/usr/local/bin/no_trim.so\n")
    machine.run(["systemctl", "daemon-reload"])


def measure(machine, client, trim):
    """MiB at the peak and after it."""
    use_trim(machine, trim)
    process = service.restart(machine)
    machine.run([client, SOCKET, "CHECK", "OK checking", PASSES, 8])
    service.wait_until_idle(process)
    return mebibytes(process, "VmHWM"), mebibytes(process, "VmRSS")


def compare(machine, client, kind, rounds):
    results = {True: [], False: []}
    for _ in range(rounds):
        for trim, found in results.items():
            found.append(measure(machine, client, trim))
    (our_peaks, ours), (peaks, theirs) = (zip(*found) for found in results.values())
    row(f"peak of {PASSES} passes at once, {kind}", our_peaks, "without trim", peaks, "MiB")
    row(f"idle after {PASSES} passes at once, {kind}", ours, "without trim", theirs, "MiB",
        "at most 16 MiB")


def main():
    service.build()
    with service.scratch() as built, service.machine_with_service(built) as machine:
        client = service.push_program(machine, "socket_client")
        service.push_program(machine, "no_trim.so")
        compare(machine, client, "nothing on offer", rounds=5)
        # Each pass proves and stages the same release: ten more requests, over a minute for all.
        machine.publish(release("1.1", built=built))
        compare(machine, client, "a release on offer", rounds=2)


main()
