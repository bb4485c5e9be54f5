#!/usr/bin/python3
"""Context switches of the idle service in ten seconds, compared with a process that polls."""

import pathlib
import signal
import subprocess
import sys
import time

import service
from lab.client_log import running
from lab.service_view import CLIENT, context_switches

SECONDS = 10
POLLING = "import time\nwhile True: time.sleep(1)"


def count_switches(process):
    """Voluntary and involuntary ones of all threads, since they began."""
    return sum(int(line.split()[-1]) for line in context_switches(process))


def compare(state, process):
    """Prints one line. The measurement ends long before the service's first pass, at 60 s."""
    with subprocess.Popen([sys.executable, "-c", POLLING]) as polling:
        other = pathlib.Path(f"/proc/{polling.pid}")
        time.sleep(1)  # both are idle after that
        our, their = count_switches(process), count_switches(other)
        time.sleep(SECONDS)
        our, their = count_switches(process) - our, count_switches(other) - their
        polling.kill()
    print(f"{state}: {our} context switches in {SECONDS} s, a process that polls each second "
          f"{their}")


def hold_session(machine):
    client = running(machine, machine.popen([CLIENT], stderr=subprocess.DEVNULL))
    client.send_signal(signal.SIGUSR2)
    machine.wait_for_log("a session is live (1 held)")
    return client


def main():
    service.build()
    with service.scratch() as built, service.machine_with_service(built) as machine:
        compare("just started", service.restart(machine))

        process = service.restart(machine)
        machine.send("CHECK")
        service.wait_until_idle(process)
        compare("after a check pass", process)

        process = service.restart(machine)
        client = hold_session(machine)
        compare("while a client holds its session", process)
        client.terminate()


main()
