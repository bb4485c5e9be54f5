#!/usr/bin/python3
"""The start of the service, and its memory then, beside a daemon that only loads its libraries.

Its other rival is the service itself with libstdc++ and libgcc linked into the program.

The time is that from the start of the process, after the scripts of ExecStartPre=, until systemd
has its READY=1. The processor time and the memory are those of the process once it is idle.
"""

import service
from lab.machine import SERVICE
from lab.service_view import PROGRAM, mebibytes, process_folder, wait_until_asleep
from rows import row

ROUNDS = 31
MINIMAL = "minimal-daemon.service"
STARTED = "/usr/local/bin/started"  # a link to the program that the unit of the service starts
# In microseconds.
TIMES = "ExecMainStartTimestampMonotonic,ActiveEnterTimestampMonotonic"


def start(machine, unit, program):
    """Returns milliseconds, milliseconds of the processor, and MiB."""
    printed = machine.run(f"ln -sf {program} {STARTED} && systemctl restart {unit} && "
                          f"systemctl show --property={TIMES} --property=MainPID {unit}")
    shown = dict(line.split("=") for line in printed.splitlines())
    process = process_folder(machine, shown["MainPID"])
    wait_until_asleep(process)
    begun, ready = (int(shown[name]) for name in TIMES.split(","))
    nanoseconds = sum(int(thread.read_text().split()[0])
                      for thread in process.glob("task/*/schedstat"))
    return (ready - begun) / 1e3, nanoseconds / 1e6, mebibytes(process, "VmRSS")


def main():
    service.build()
    ours, theirs, static = [], [], []
    with service.scratch() as built, service.machine_with_service(built) as machine:
        machine.write(f"/run/systemd/system/{SERVICE}.d/started.conf",
                      f"[Service]\nExecStart=\nExecStart={STARTED}\n")
        machine.write(f"/run/systemd/system/{MINIMAL}",
                      "[Unit]\nStartLimitIntervalSec=0\n"
                      f"[Service]\nType=notify\nExecStart={STARTED}\n")
        machine.run(["systemctl", "daemon-reload"])
        minimal = service.push_program(machine, "minimal_daemon")
        static_service = service.push_program(machine, "static_service")
        for _ in range(ROUNDS):
            ours.append(start(machine, SERVICE, PROGRAM))
            theirs.append(start(machine, MINIMAL, minimal))
            static.append(start(machine, SERVICE, static_service))
    rows = [("start to READY=1", "ms"), ("start to READY=1, processor time", "ms"),
            ("idle memory", "MiB")]
    for rival, figures, goal in (("a daemon that loads the same libraries", theirs, "at most 1.05"),
                                 ("the same with static libstdc++", static, "-")):
        for (name, unit), our, their in zip(rows, zip(*ours), zip(*figures)):
            row(name, our, rival, their, unit, goal)


main()
