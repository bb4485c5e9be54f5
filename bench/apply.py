#!/usr/bin/python3
"""A whole apply while no client runs, beside apt-get by hand; and the start of the next build.

An apply is measured from its request to the exit of the service with status 75. It has no fixed
waits here: no client exits first, and none is judged. By hand, the same package is installed on the
same machine with the same arguments and environment, in a unit of its own, too. Both take turns,
and before each the machine has client 1.0 again.

The processor time is that of the unit: of the service, apt-get and the maintainer scripts, without
the service manager. A busy host changes it little.

The next build is ready when systemd has its READY=1; beside it, the time to that after a SIGKILL,
with the pause of RestartSec=.

    bench/apply.py [ROUNDS]
"""

import os
import select
import statistics
import sys
import time

import service  # finds the lab, too
from lab import update_steps
from lab.invariants import host_pid
from lab.machine import SERVICE
from lab.releases import package
from lab.service_view import INSTALL, RECORD, ask, wait_for_passes
from rows import row

ROUNDS = 15
END_LIMIT = 300  # seconds
LEAST_SECONDS = 2  # the next build of a service that ran for less starts after the pause
# Properties of the unit, on the clock of time.monotonic(), in microseconds.
START = "ExecMainStartTimestampMonotonic"
READY = "ActiveEnterTimestampMonotonic"
MARKS = ["DEBIAN_FRONTEND=noninteractive", "VANTRELL_UPDATE_APPLY=1", "NEEDRESTART_SUSPEND=1"]
KILL = ["systemctl", "kill", "--kill-who=main", "--signal=KILL", SERVICE]
FILES = {"1.0": "/var/tmp/1.0.deb", "1.1": "/var/tmp/1.1.deb"}
# Prints the duration and the processor time of a command, both in microseconds.
TIMED = """#!/bin/bash
group=/sys/fs/cgroup$(sed -n s/^0:://p /proc/self/cgroup)
used() { sed -n 's/^usage_usec //p' "$group/cpu.stat"; }
before=$(used) start=${EPOCHREALTIME/./}
"$@" >/run/apt-get.log 2>&1 || { cat /run/apt-get.log; exit 1; }
echo $((${EPOCHREALTIME/./} - start)) $(($(used) - before))"""


def install_by_hand(machine, version):
    """Seconds and processor seconds of apt-get."""
    environment = machine.run(["systemctl", "show", "--value", "--property=Environment", SERVICE])
    options = [f"--setenv={entry}" for entry in environment.split() + MARKS]
    printed = machine.run(["systemd-run", "--quiet", "--collect", "--wait", "--pipe", *options,
                           "/run/timed", "apt-get", *INSTALL, FILES[version]])
    return [int(number) / 1e6 for number in printed.split()]


def end_service(machine, end):
    """Calls `end`, which ends the service.

    Returns seconds and processor seconds until then, and seconds from then to the next READY=1.
    """
    process = os.pidfd_open(host_pid(machine))
    lines = len(machine.log())

    before, start = service.processor_seconds(machine), time.monotonic()
    end()
    # Nothing reads the log meanwhile: this would take processor time from what is measured.
    if not select.select([process], [], [], END_LIMIT)[0]:
        sys.exit("apply.py: the service does not end:\n" + "\n".join(machine.log()[lines:]))
    ended = time.monotonic()
    # The scripts of ExecStopPost= have just begun in the unit.
    spent = service.processor_seconds(machine) - before
    os.close(process)

    machine.wait_for_log("listening on", after=lines)
    ready = machine.run(f"until systemctl --quiet is-active {SERVICE}; do sleep 0.1; done; "
                        f"systemctl show --value --property={READY} {SERVICE}")
    return ended - start, spent, int(ready) / 1e6 - ended


def apply(machine, built):
    machine.run(["rm", "-f", RECORD])  # with it, 1.1 would not be installed again
    update_steps.stage(machine, "1.1", built=built)
    wait_for_passes(machine)
    started = int(machine.run(["systemctl", "show", "--value", f"--property={START}", SERVICE]))
    time.sleep(max(0, started / 1e6 + LEAST_SECONDS - time.monotonic()))

    def request():
        reply = ask(machine, "APPLY")
        if reply != "OK applying":
            sys.exit(f"apply.py: the service refuses: {reply}")

    return end_service(machine, request)


def main():
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else ROUNDS
    service.build()
    ours, theirs, restarts = [], [], []
    with service.scratch() as built, service.machine_with_service(built) as machine:
        # A request from the host comes from no seat, so it needs an open window.
        update_steps.make_noon(machine, update_steps.DAY)
        machine.write("/run/timed", TIMED, 0o755)
        for version, path in FILES.items():
            machine.push(package(version, built=built), path, 0o644)
        for _ in range(rounds):
            ours.append(apply(machine, built))
            install_by_hand(machine, "1.0")
            theirs.append(install_by_hand(machine, "1.1"))
            install_by_hand(machine, "1.0")
            *_, restart = end_service(machine, lambda: machine.run(KILL))
            restarts.append(restart)
    our_times, our_costs, starts = zip(*ours)
    times, costs = zip(*theirs)
    row("a whole apply", our_times, "apt-get by hand", times, "s", goal="at most 0.1 s more")
    row("a whole apply, processor time", our_costs, "apt-get by hand", costs, "s")
    row("status 75 to READY=1", starts, "SIGKILL to READY=1", restarts, "s")
    for name, our, their in ("time", our_times, times), ("processor time", our_costs, costs):
        more = sorted(a - b for a, b in zip(our, their))
        print(f"{name} on top of apt-get: median {statistics.median(more):+.3f} s, "
              f"{more[0]:+.3f} to {more[-1]:+.3f}")


main()
