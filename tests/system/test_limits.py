"""What the units keep a flood of checks, a stop and other programs from doing to an install."""

import pytest

from lab import log_lines as log
from lab.disturbances import UNIT_NAME, add_asking_hook, flood_of_checks, take_unit_names
from lab.held_install import run_at_gate, stage_held
from lab.last_look import POWEROFF, last_look
from lab.outside_world import DOWNLOADS, UPDATES
from lab.releases import DEB, release
from lab.service_view import CLIENT, CLIENT_BEHAVIOUR, until_logged
from lab.update_steps import client_requests_apply, request_apply, said, stage, start_client

pytestmark = pytest.mark.usefixtures("quiet")


def test_a_flood_of_checks_does_not_make_the_new_client_look_dead(machine):
    stage(machine, "1.1")
    client = start_client(machine, "alice")
    machine.misbehave(UPDATES, None, "mute")
    with flood_of_checks(machine):
        machine.wait_for_log(log.RELAUNCHED, after=client_requests_apply(machine, client))


def test_a_removal_does_not_wait_for_a_download(machine):
    machine.publish(release("1.1"))
    # The service begins its first check by itself.
    assert machine.misbehave(DOWNLOADS, f"/packages/1.1/{DEB}", "hang").wait(120)
    lines = len(machine.log())
    machine.run("apt-get remove -y vantrell-harbor", timeout=30)
    assert machine.log()[lines:] == [log.CHECK_KILLED, "ended with status KILL"]
    assert machine.run("systemctl --failed --no-legend") == ""


def test_a_poweroff_waits_for_an_install_and_hooks_do_not_end_it(machine):
    add_asking_hook(machine)
    stage_held(machine, "1.1", "preinst")
    with last_look(machine, "dpkg-query -W vantrell-harbor; dpkg --audit") as seen:
        request_apply(machine)
        run_at_gate(machine, f"{POWEROFF}; {until_logged(log.INSTALL_DELAYS_STOP)}")
        assert seen() == "vantrell-harbor\t1.1\n"


def test_only_a_running_unit_of_the_same_second_keeps_a_client_from_its_start(machine):
    stage(machine, "1.1", "--behaviour", "die-after 0", "--behaviour", "exit-code 3")
    alice = machine.login("alice")
    lines = client_requests_apply(machine, alice.start([CLIENT]))
    machine.wait_for_log(log.NOT_STAYED, after=lines)
    # A unit that has failed would keep its name too.
    assert alice.run(f"systemctl --user list-units --all --no-legend '{UNIT_NAME}*'") == ""

    machine.write(CLIENT_BEHAVIOUR, "stay")
    stage(machine, "1.2")
    take_unit_names(alice)
    lines = client_requests_apply(machine, alice.start([CLIENT]))
    _, why, *story = said(machine, lines, "ended with status")
    assert why.startswith(log.NO_START.format("alice") + "Failed to start transient service unit: "
                          f"Unit {UNIT_NAME}")
    assert story == [log.APPLIED_ALONE.format("1.2"), *log.ENDED]
