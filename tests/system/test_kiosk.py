"""A client under a supervisor is not started by the service: it ends the old one and watches."""

import pytest
from conftest import ENDED, NO_COPY, RELAUNCHED, UNJUDGED

from lab.client_log import CLIENT_LOG, client_starts, running, wait_for_client
from lab.service_view import CLIENT
from lab.update_steps import request_apply, said, stage

ASKED = ("[UpdateSvc] asked the kiosk supervisor (kiosk@1.service) to restart its client from the "
         "new image (attempt {})")
STARTED = "[UpdateSvc] the kiosk supervisor started pid {}"
NONE_CAME = "[UpdateSvc] the kiosk supervisor started no new client within 15000ms"
BY_ITSELF = ("[UpdateSvc] applied without judging: the kiosk client picks up the new image when it "
             "next starts")
NOT_STAYED = ("[UpdateSvc] apply refused: the updated client did not stay running and there was no "
              "rollback copy")


def start_kiosk(machine, restart="always", seconds=1, clients=1):
    """Starts clients of the user kiosk under a supervisor; returns the pids."""
    machine.write("/etc/systemd/system/kiosk@.service", "[Service]\nUser=kiosk\n"
                  f"ExecStart={CLIENT} %i\nRestart={restart}\nRestartSec={seconds}\n")
    for number in range(1, clients + 1):
        machine.run(["systemctl", "start", f"kiosk@{number}.service"])
        wait_for_client(machine, f'start argv .*"{number}"')
    return [pid for pid, *_ in client_starts(machine, "1.0")]


def new_clients(machine, uid):
    return [pid for pid, owner, *_ in client_starts(machine, "1.1") if owner == uid]


def told_to_end(machine):
    return sorted(line for line in machine.read(CLIENT_LOG).splitlines() if "SIGTERM" in line)


@pytest.mark.slow
def test_a_kiosk_restarts_both_its_clients_and_others_are_no_business_of_it(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1")
    old = start_kiosk(machine, clients=2)
    # Counts the signals, and is sure to live through the whole of the kiosk's scan.
    machine.write("/usr/share/vantrell-harbor/behaviour", "ignore-term")
    alice = running(machine, machine.login("alice").start([CLIENT]))
    story = said(machine, request_apply(machine), "ended with status")
    judged = int(story[2].split()[-1])
    assert story == [NO_COPY, ASKED.format(1), STARTED.format(judged), RELAUNCHED, *ENDED]
    assert judged in new_clients(machine, 1010) and len(new_clients(machine, 1010)) == 2
    assert len(new_clients(machine, 1001)) == 1
    assert told_to_end(machine) == sorted([
        *(f"[1.0 pid {pid} uid 1010] SIGTERM" for pid in old),
        f"[1.0 pid {alice.pid_inside} uid 1001] SIGTERM ignored"])


@pytest.mark.slow
def test_a_slow_supervisor_is_asked_twice_and_its_client_judged_by_pid(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1", "--behaviour", "die-after 3")
    [old] = start_kiosk(machine, seconds=20)
    session, lines = machine.login("bob"), request_apply(machine)
    machine.wait_for_log(ASKED.format(1), after=lines)
    running(machine, session.start([CLIENT]))  # new and in time, but not the kiosk's
    story = said(machine, lines, "refused")
    assert story == [NO_COPY, ASKED.format(1), NONE_CAME, ASKED.format(2),
                     STARTED.format(*new_clients(machine, 1010)),
                     "[UpdateSvc] the new client exited within 20000ms", NOT_STAYED]
    assert told_to_end(machine) == [f"[1.0 pid {old} uid 1010] SIGTERM"]


@pytest.mark.slow
def test_a_supervisor_that_starts_nobody_leaves_nothing_to_judge(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1")
    start_kiosk(machine, restart="no")
    assert said(machine, request_apply(machine), "ended with status") == [
        NO_COPY, ASKED.format(1), NONE_CAME, ASKED.format(2), NONE_CAME, BY_ITSELF, UNJUDGED,
        *ENDED]
    assert machine.version_of("vantrell-harbor") == "1.1" and not client_starts(machine, "1.1")
