#!/usr/bin/python3
"""The start of the service, and its memory then, beside a daemon that only loads its libraries.

The time is that from the start of the process, after the scripts of ExecStartPre=, until systemd
has its READY=1. The processor time and the memory are those of the process once it is idle.
"""

import service
from lab.machine import SERVICE
from lab.service_view import mebibytes, process_folder, wait_until_asleep
from rows import row

ROUNDS = 31
MINIMAL = "minimal-daemon.service"
# In microseconds.
TIMES = "ExecMainStartTimestampMonotonic,ActiveEnterTimestampMonotonic"


def start(machine, unit):
    """Returns milliseconds, milliseconds of the processor, and MiB."""
    printed = machine.run(f"systemctl restart {unit} && systemctl show --property={TIMES} "
                          f"--property=MainPID {unit}")
    shown = dict(line.split("=") for line in printed.splitlines())
    process = process_folder(machine, shown["MainPID"])
    wait_until_asleep(process)
    begun, ready = (int(shown[name]) for name in TIMES.split(","))
    nanoseconds = sum(int(thread.read_text().split()[0])
                      for thread in process.glob("task/*/schedstat"))
    return (ready - begun) / 1e3, nanoseconds / 1e6, mebibytes(process, "VmRSS")


def main():
    service.build()
    ours, theirs = [], []
    with service.scratch() as built, service.machine_with_service(built) as machine:
        program = service.push_program(machine, "minimal_daemon")
        machine.write(f"/run/systemd/system/{MINIMAL}",
                      "[Unit]\nStartLimitIntervalSec=0\n"
                      f"[Service]\nType=notify\nExecStart={program}\n")
        machine.run(["systemctl", "daemon-reload"])
        for _ in range(ROUNDS):
            ours.append(start(machine, SERVICE))
            theirs.append(start(machine, MINIMAL))
    rows = [("start to READY=1", "ms"), ("start to READY=1, processor time", "ms"),
            ("idle memory", "MiB")]
    for (name, unit), our, their in zip(rows, zip(*ours), zip(*theirs)):
        row(name, our, "a daemon that loads the same libraries", their, unit, "at most 1.05")


main()
