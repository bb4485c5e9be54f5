#!/usr/bin/python3
"""Resident memory after many check passes at once, with malloc_trim and without."""

import statistics

import service
from lab.machine import SERVICE, SOCKET
from lab.releases import release
from lab.service_view import mebibytes

PASSES = 128
DROP_IN = f"/run/systemd/system/{SERVICE}.d/no-trim.conf"


def use_trim(machine, trim):
    if trim:
        machine.run(["rm", "-f", DROP_IN])
    else:
        machine.write(DROP_IN, "[Service]\nEnvironment=LD_PRELOAD=/usr/local/bin/no_trim.so\n")
    machine.run(["systemctl", "daemon-reload"])


def measure(machine, client, trim):
    """MiB before, at the peak and after, and the largest number of threads at one time."""
    use_trim(machine, trim)
    process = service.restart(machine)
    before = mebibytes(process, "VmRSS")
    machine.run([client, SOCKET, "CHECK", "OK checking", PASSES, 8])
    threads = service.wait_until_idle(process)
    return before, mebibytes(process, "VmHWM"), mebibytes(process, "VmRSS"), threads


def compare(machine, client, kind, rounds):
    results = {True: [], False: []}
    for _ in range(rounds):
        for trim, found in results.items():
            found.append(measure(machine, client, trim))
    for trim, found in results.items():
        before, peak, after, threads = zip(*found)
        print(f"{PASSES} passes at once, {kind}, {'as shipped' if trim else 'without trim'}: "
              f"{statistics.median(before):.1f} MiB before, {statistics.median(peak):.1f} at the "
              f"peak ({max(threads)} threads), {statistics.median(after):.1f} idle again "
              f"(most {max(after):.1f})", flush=True)


def main():
    service.build()
    with service.scratch() as built, service.machine_with_service(built) as machine:
        client = service.push_program(machine, "socket_client")
        service.push_program(machine, "no_trim.so")
        compare(machine, client, "nothing on offer", rounds=5)
        # Each pass proves and stages the same release: ten more requests, over a minute for all.
        machine.publish(release("1.1", built=built))
        compare(machine, client, "a release on offer", rounds=1)


main()
