#!/usr/bin/python3
"""Context switches of the idle service, beside a process that polls each second."""

import pathlib
import subprocess
import sys
import time

import service
from lab.service_view import context_switches
from rows import row

SECONDS = 10
ROUNDS = 3  # they end before the service's first pass, at 60 s
POLLING = "import time\nwhile True: time.sleep(1)"


def count_switches(process):
    """Voluntary and involuntary ones of all threads, since they began."""
    return sum(int(line.split()[-1]) for line in context_switches(process))


def compare(state, process):
    ours, theirs = [], []
    with subprocess.Popen([sys.executable, "-c", POLLING]) as polling:
        other = pathlib.Path(f"/proc/{polling.pid}")
        time.sleep(1)  # both are idle after that
        for _ in range(ROUNDS):
            our, their = count_switches(process), count_switches(other)
            time.sleep(SECONDS)
            ours.append(count_switches(process) - our)
            theirs.append(count_switches(other) - their)
        polling.kill()
    row(f"idle for {SECONDS} s, {state}", ours, "a poll each second", theirs, "switches",
        "at most 0 switches")


def main():
    service.build()
    with service.scratch() as built, service.machine_with_service(built) as machine:
        compare("just started", service.restart(machine))

        process = service.restart(machine)
        machine.send("CHECK")
        service.wait_until_idle(process)
        compare("after a check pass", process)

        process = service.restart(machine)
        client = service.hold_sessions(machine, 1)
        compare("while a client holds its session", process)
        client.terminate()


main()
