#!/usr/bin/python3
"""Context switches of the idle service within ten seconds, beside a process that polls."""

import pathlib
import signal
import subprocess
import sys
import time

import service

SECONDS = 10
CLIENT_LOG = "/var/log/vantrell-harbor-client.log"
POLLING = "import time\nwhile True: time.sleep(1)"


def count_switches(process):
    """Voluntary and involuntary ones of all threads, since they began."""
    return sum(int(line.split()[1])
               for thread in (process / "task").iterdir()
               for line in (thread / "status").read_text().splitlines()
               if "ctxt_switches" in line)


def compare(state, process):
    """Prints one line. The service's first pass is a minute after its start: well behind this."""
    with subprocess.Popen([sys.executable, "-c", POLLING]) as polling:
        other = pathlib.Path(f"/proc/{polling.pid}")
        time.sleep(1)  # both have settled
        our, their = count_switches(process), count_switches(other)
        time.sleep(SECONDS)
        our, their = count_switches(process) - our, count_switches(other) - their
        polling.kill()
    print(f"{state}: {our} context switches in {SECONDS} s, a process that polls each second "
          f"{their}")


def hold_session(machine):
    client = machine.popen(["/usr/bin/vantrell-harbor"], stderr=subprocess.DEVNULL)
    machine.run(f"until grep -q 'start argv' {CLIENT_LOG}; do sleep 0.1; done", timeout=30)
    client.send_signal(signal.SIGUSR2)
    machine.wait_for_log("a session is live (1 held)")
    return client


def main():
    service.build()
    with service.scratch() as folder, service.machine_with_service(folder) as machine:
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
