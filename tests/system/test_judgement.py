"""A new client must stay for twenty seconds, or the previous package comes back."""

import pytest
from conftest import ENDED, NO_COPY, RELAUNCHED, SERVICE

from lab.client_log import client_starts, wait_for_client
from lab.service_view import CLIENT, STATE
from lab.update_steps import client_requests_apply, request_apply, said, stage

GONE = "[UpdateSvc] the new client exited within 20000ms ({})"
BACK = "[UpdateSvc] rolling back to the previous set (1.1)"
REFUSED = "[UpdateSvc] apply refused: the updated client did not stay running"
RESTORED = REFUSED + "; the previous version was restored"
PREVIOUS = f"{STATE}/client-rollback/previous.deb"


def accept_first(machine):
    """Has 1.1 accepted with no client around, which leaves a copy of it to go back to."""
    stage(machine, "1.1")
    machine.wait_for_log("listening on", after=request_apply(machine))


def from_a_session(machine):
    return client_requests_apply(machine, machine.login("alice").start([CLIENT, "--mine"]))


def records(machine):
    return machine.run(f"cd {STATE} && sha256sum installed.sha256 client-rollback/*")


@pytest.mark.slow
@pytest.mark.parametrize("seconds", [0, 19])
def test_a_client_that_dies_in_time_is_rolled_back(quiet_machine, seconds):
    machine = quiet_machine
    accept_first(machine)
    stage(machine, "1.2", "--behaviour", f"die-after {seconds}")
    before = records(machine)
    assert said(machine, from_a_session(machine), REFUSED) == [
        GONE.format("inactive"), BACK, RESTORED]
    assert machine.version_of("vantrell-harbor") == "1.1" and records(machine) == before
    assert machine.send("STATUS") == "READY 1.2 staged 1.2"
    forward, back, change = machine.run(
        "grep -E '^(Commandline|Downgrade)' /var/log/apt/history.log | tail -n 3").splitlines()
    assert back.rpartition(" ")[::2] == (forward.rpartition(" ")[0], PREVIOUS)
    assert change == "Downgrade: vantrell-harbor:amd64 (1.2, 1.1)"
    *_, (pid, uid, arguments, _) = client_starts(machine, "1.1")
    assert (uid, arguments) == (1001, ["--mine"]) and machine.exists(f"/proc/{pid}")
    assert [len(client_starts(machine, version)) for version in ("1.1", "1.2")] == [2, 1]


@pytest.mark.slow
def test_a_client_that_dies_later_has_passed_and_a_stop_waits_for_it(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1", "--behaviour", "die-after 21")
    lines = from_a_session(machine)
    wait_for_client(machine, r"^\[1.1 .* start")
    machine.run(["systemctl", "stop", SERVICE])
    assert said(machine, lines, "ended with status") == [NO_COPY, RELAUNCHED, *ENDED]
    assert machine.run(["systemctl", "is-active", SERVICE], check=False) == "inactive\n"
    wait_for_client(machine, r"^\[1.1 .* end 0")


@pytest.mark.parametrize("behaviour, state", [("die-after 0", "inactive"), ("stay", "no answer")])
def test_without_a_copy_to_go_back_to_the_new_package_stays(quiet_machine, behaviour, state):
    machine = quiet_machine
    stage(machine, "1.1", "--behaviour", behaviour)
    if state == "no answer":
        machine.write("/usr/local/sbin/systemctl", "#!/bin/sh\necho no answer; exit 1\n", 0o755)
    assert said(machine, from_a_session(machine), REFUSED) == [
        NO_COPY, GONE.format(state), REFUSED + " and there was no rollback copy"]
    assert machine.version_of("vantrell-harbor") == "1.1" and not machine.exists(PREVIOUS)
    assert machine.send("STATUS") == "READY 1.1 staged 1.1"


@pytest.mark.slow
def test_a_rollback_that_fails_starts_nobody_and_says_restored_all_the_same(quiet_machine):
    machine = quiet_machine
    accept_first(machine)
    stage(machine, "1.2", "--behaviour", "die-after 0")
    machine.write(PREVIOUS, "no package")
    before = records(machine)
    *first, last_words, failure, end = said(machine, from_a_session(machine), REFUSED)
    assert first[:2] == [GONE.format("inactive"), BACK] and last_words.startswith("E: ")
    assert failure == f"[UpdateSvc] rollback failed: apt-get exited 100: {last_words}"
    assert end == RESTORED and records(machine) == before
    assert machine.version_of("vantrell-harbor") == "1.2"
    assert machine.send("STATUS") == "READY 1.2 staged 1.2"
    assert [len(client_starts(machine, version)) for version in ("1.1", "1.2")] == [1, 1]
