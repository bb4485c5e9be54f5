#!/usr/bin/python3
"""What the watch over a relaunched client costs: the processor time of the machine, and sessions.

After an install the service asks for the state of the new client every 250 ms, for 20 s. The client
runs under the service manager of its user, and systemd opens a session of the user for each of
these questions. The processor time is that of all processes of the machine. Beside it are 20 s of
the same machine, with the same client, in which nothing happens.
"""

import json
import time

import service  # finds the lab, too
from lab import update_steps
from lab.client_log import CLIENT_LOG
from lab.log_lines import RELAUNCHED
from rows import row

ROUNDS = 3
SECONDS = 20
START_LIMIT = 300  # seconds, for the install
# The message id of a unit that has started. logind starts one for each session, and itself logs no
# background sessions, such as these.
STARTED = "39f53479d3a045ac8e11786248231fbf"


def new_sessions(machine, start, end):
    """How many sessions logind opened between two times of time.monotonic()."""
    entries = machine.run("journalctl --sync; journalctl --quiet --output=json "
                          f"_PID=1 MESSAGE_ID={STARTED}").splitlines()
    units = [json.loads(entry) for entry in entries]
    return sum(unit["UNIT"].startswith("session-") and
               start <= int(unit["__MONOTONIC_TIMESTAMP"]) / 1e6 <= end for unit in units)


def observe(machine):
    """Processor seconds of the machine, and new sessions, in the next 20 s.

    Nothing enters the machine meanwhile. Rounded to 10 ms: an idle machine takes less.
    """
    whole = machine.on_host("/sys/fs/cgroup")
    start, spent = time.monotonic(), service.processor_seconds(machine, whole)
    time.sleep(SECONDS)
    spent = service.processor_seconds(machine, whole) - spent
    return round(spent, 2), new_sessions(machine, start, time.monotonic())


def wait_for_start(machine, version):
    """Reads the log of the clients from the host until one of this version has started."""
    log = machine.on_host(CLIENT_LOG)
    deadline = time.monotonic() + START_LIMIT
    while f"[{version} pid" not in log.read_text():
        if time.monotonic() > deadline:
            raise TimeoutError("the new client does not start")
        time.sleep(0.01)


def judge(machine, version, built):
    """Installs a version while a client runs, which is replaced; returns the two observations."""
    update_steps.stage(machine, version, built=built)
    idle = observe(machine)
    lines = update_steps.request_apply(machine)
    wait_for_start(machine, version)
    judged = observe(machine)
    machine.wait_for_log(RELAUNCHED.replace("1.1", version), after=lines)
    machine.wait_for_log("listening on", after=lines)
    return judged, idle


def main():
    service.build()
    with service.scratch() as built, service.machine_with_service(built) as machine:
        # A request from the host comes from no seat, so it needs an open window.
        update_steps.make_noon(machine, update_steps.DAY)
        update_steps.start_client(machine, "alice")
        found = [judge(machine, f"1.{number}", built) for number in range(1, 1 + ROUNDS)]
    (spent, sessions), (idle_spent, idle_sessions) = (zip(*column) for column in zip(*found))
    name = f"watch over a new client for {SECONDS} s"
    row(name + ", processor time of the machine", spent, "an idle machine", idle_spent, "s")
    row(name, sessions, "an idle machine", idle_sessions, "sessions")


main()
