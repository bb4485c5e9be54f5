"""The service in the sandbox of confined.conf: what it still does, and what it does not install."""

import pytest

from lab import log_lines as log
from lab.client_log import wait_for_client
from lab.confined import confine
from lab.footprint import package_state
from lab.held_install import run_at_gate, stage_held
from lab.kill_rounds import VICTIMS
from lab.last_look import last_look
from lab.machine import SERVICE
from lab.service_view import CONFIG, STATE, until_logged
from lab.update_steps import client_requests_apply, request_apply, said, stage, start_client


@pytest.fixture
def confined(quiet):
    confine(quiet)
    return quiet


def test_a_confined_service_sets_the_ring_installs_judges_and_rolls_back(confined):
    machine = confined
    assert machine.succeeds(["systemd-analyze", "security", "--threshold=30", SERVICE])
    assert machine.send("SETRING beta") == "OK"
    assert machine.read(CONFIG).endswith("Channel=beta\n")
    assert machine.send("SETRING prod") == "OK"
    stage(machine, "1.1")
    lines = client_requests_apply(machine, start_client(machine, "alice"))
    assert said(machine, lines, "ended with status") == [log.NO_COPY, log.RELAUNCHED, *log.ENDED]
    stage(machine, "1.2", "--behaviour", "die-after 0")
    lines = client_requests_apply(machine, start_client(machine, "bob"))
    assert said(machine, lines, log.NOT_STAYED) == [
        log.GONE + " (inactive)", log.ROLLBACK, log.RESTORED]
    assert package_state(machine) == "installed ok 1.1"
    assert machine.run(["find", STATE, "/etc/vantrell-harbor", "-name", "*.tmp"]) == ""


def test_a_confined_install_outlives_a_kill_of_the_service_and_a_poweroff(confined):
    machine = confined
    stage_held(machine, "1.1", "postinst")
    lines = request_apply(machine)
    run_at_gate(machine, f"{VICTIMS['both']}; {until_logged(log.WAITED)}")
    assert said(machine, lines, "listening on")[:-1] == [
        log.NO_COPY, "ended with status KILL", log.WAITED]
    assert package_state(machine) == "installed ok 1.1"

    stage_held(machine, "1.2", "preinst")
    lines = request_apply(machine)
    run_at_gate(machine, f"systemctl stop --no-block {SERVICE}; "
                f"{until_logged(log.INSTALL_DELAYS_STOP)}")
    assert said(machine, lines, "ended with status") == [
        log.NO_COPY, log.INSTALL_DELAYS_STOP, log.APPLIED_ALONE.format("1.2"), *log.ENDED]

    stage(machine, "1.3")
    # The poweroff ends the new client, so the rollback begins after it.
    with last_look(machine, "dpkg-query -W vantrell-harbor; dpkg --audit") as seen:
        client_requests_apply(machine, start_client(machine, "alice"))
        wait_for_client(machine, r"^\[1.3 .* start")
        machine.run(["systemctl", "poweroff"])
        assert seen() == "vantrell-harbor\t1.2\n"
