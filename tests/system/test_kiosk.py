"""A supervisor, not the service, starts a kiosk's new client: the service ends the old one."""

import pytest
from conftest import ENDED, NO_COPY, RELAUNCHED, UNJUDGED

from lab.client_log import client_starts, running
from lab.client_signals import told_to_end
from lab.kiosk import start_kiosk
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
EARLY_CLIENT = f"systemd-run --quiet --property=Type=exec --uid=kiosk {CLIENT} early"


def new_clients(machine, uid):
    """The arguments of each new client of a user, by pid."""
    return {pid: arguments for pid, owner, arguments, _ in client_starts(machine, "1.1")
            if owner == uid}


@pytest.mark.slow
def test_all_clients_of_a_kiosk_restart_and_one_of_its_supervisor_is_judged(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1", "--postinst", EARLY_CLIENT)
    old = start_kiosk(machine, clients=2)
    # Alice's client must still run while the kiosk's clients are ended, which must not signal it.
    machine.write("/usr/share/vantrell-harbor/behaviour", "ignore-term")
    alice = running(machine, machine.login("alice").start([CLIENT]))
    story = said(machine, request_apply(machine), "ended with status")
    judged = int(story[2].split()[-1])
    assert story == [NO_COPY, ASKED.format(1), STARTED.format(judged), RELAUNCHED, *ENDED]
    kiosks = new_clients(machine, 1010)
    assert sorted(kiosks.values()) == [["1"], ["2"], ["early"]]
    assert kiosks[judged] != ["early"]
    assert len(new_clients(machine, 1001)) == 1
    assert told_to_end(machine, "1.0") == sorted([*old, alice.pid_inside])


@pytest.mark.slow
def test_a_slow_supervisor_gets_a_second_attempt_and_its_client_is_judged_by_pid(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1", "--behaviour", "die-after 3")
    old = start_kiosk(machine, seconds=20)
    session, lines = machine.login("bob"), request_apply(machine)
    machine.wait_for_log(ASKED.format(1), after=lines)
    running(machine, session.start([CLIENT]))  # a new client, but of another user
    story = said(machine, lines, "refused")
    assert story == [NO_COPY, ASKED.format(1), NONE_CAME, ASKED.format(2),
                     STARTED.format(*new_clients(machine, 1010)),
                     "[UpdateSvc] the new client exited within 20000ms", NOT_STAYED]
    assert told_to_end(machine, "1.0") == old


@pytest.mark.slow
def test_after_two_attempts_without_a_new_client_the_release_is_accepted_unjudged(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1")
    start_kiosk(machine, restart="no")
    assert said(machine, request_apply(machine), "ended with status") == [
        NO_COPY, ASKED.format(1), NONE_CAME, ASKED.format(2), NONE_CAME, BY_ITSELF, UNJUDGED,
        *ENDED]
    assert machine.version_of("vantrell-harbor") == "1.1"
    assert client_starts(machine, "1.1") == []
