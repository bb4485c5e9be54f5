"""A new client must stay for twenty seconds, or the previous package is installed again."""

import pytest
from conftest import ENDED, NO_COPY, RELAUNCHED, SERVICE

from lab.client_log import client_starts, running, wait_for_client
from lab.service_view import CLIENT, STATE
from lab.stubs import stub
from lab.update_steps import client_requests_apply, request_apply, said, stage

GONE = "[UpdateSvc] the new client exited within 20000ms ({})"
BACK = "[UpdateSvc] rolling back to the previous set (1.1)"
REFUSED = "[UpdateSvc] apply refused: the updated client did not stay running"
RESTORED = REFUSED + "; the previous version was restored"
PREVIOUS = f"{STATE}/client-rollback/previous.deb"


def accept_first(machine):
    """Has 1.1 accepted while no client runs, which makes it the rollback copy."""
    stage(machine, "1.1")
    machine.wait_for_log("listening on", after=request_apply(machine))


def alices_client_asks(machine):
    return client_requests_apply(machine, machine.login("alice").start([CLIENT, "alice's"]))


def records(machine):
    return machine.run(f"cd {STATE} && sha256sum installed.sha256 client-rollback/*")


def started(machine, version):
    """The arguments of each client of a version, in the order of starts."""
    return [arguments for _, _, arguments, _ in client_starts(machine, version)]


@pytest.mark.slow
def test_a_client_that_dies_after_19_s_is_rolled_back_for_the_user_who_asked(quiet_machine):
    machine = quiet_machine
    accept_first(machine)
    stage(machine, "1.2", "--behaviour", "die-after 19")
    before = records(machine)
    running(machine, machine.login("bob", seat=None).start([CLIENT, "bob's"]))
    assert said(machine, alices_client_asks(machine), REFUSED) == [
        GONE.format("inactive"), BACK, RESTORED]
    assert machine.version_of("vantrell-harbor") == "1.1"
    assert records(machine) == before
    # What follows the version may be the outcome of the service's own pass.
    assert machine.send("STATUS").startswith("READY 1.2 ")
    assert started(machine, "1.2") == [["alice's"], ["bob's"]]
    assert started(machine, "1.1") == [["bob's"], ["alice's"], ["alice's"]]
    pid, uid, *_ = client_starts(machine, "1.1")[-1]
    assert uid == 1001
    assert machine.exists(f"/proc/{pid}")


@pytest.mark.slow
def test_a_client_that_dies_after_21_s_is_accepted_and_a_stop_waits_for_that(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1", "--behaviour", "die-after 21")
    lines = alices_client_asks(machine)
    wait_for_client(machine, r"^\[1.1 .* start")
    machine.run(["systemctl", "stop", SERVICE])
    assert said(machine, lines, "ended with status") == [
        NO_COPY, "waiting for an install to end before the service stops", RELAUNCHED, *ENDED]
    assert machine.run(["systemctl", "is-active", SERVICE], check=False) == "inactive\n"
    wait_for_client(machine, r"^\[1.1 .* end 0")


def test_a_failed_query_means_gone_and_without_a_copy_the_package_stays(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1")
    machine.run(stub("systemctl", "echo no answer; exit 1"))
    assert said(machine, alices_client_asks(machine), REFUSED) == [
        NO_COPY, GONE.format("no answer"), REFUSED + " and there was no rollback copy"]
    assert machine.version_of("vantrell-harbor") == "1.1"
    assert not machine.exists(PREVIOUS)
    assert machine.send("STATUS").startswith("READY 1.1 ")


def test_a_rollback_that_fails_starts_no_client_and_still_says_restored(quiet_machine):
    machine = quiet_machine
    accept_first(machine)
    stage(machine, "1.2", "--behaviour", "die-after 0")
    machine.write(PREVIOUS, "no package")
    before = records(machine)
    story = said(machine, alices_client_asks(machine), REFUSED)
    *_, last_words, failure, end = story
    assert story[:2] == [GONE.format("inactive"), BACK]
    assert last_words.startswith("E: ")
    assert failure == f"[UpdateSvc] rollback failed: apt-get exited 100: {last_words}"
    assert end == RESTORED
    assert records(machine) == before
    assert machine.version_of("vantrell-harbor") == "1.2"
    assert machine.send("STATUS").startswith("READY 1.2 ")
    assert started(machine, "1.1") == started(machine, "1.2") == [["alice's"]]
