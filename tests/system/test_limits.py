"""What the units keep a flood of checks, a stop and other programs from doing to an install."""

import pytest

from lab.disturbances import UNIT_NAME, add_asking_hook, flood_of_checks, take_unit_names
from lab.held_install import gate, run_at_gate
from lab.last_look import last_look
from lab.log_lines import (APPLIED_ALONE, CHECK_KILLED, ENDED, INSTALL_DELAYS_STOP, NO_START,
                           NOT_STAYED, RELAUNCHED)
from lab.outside_world import DOWNLOADS, UPDATES
from lab.releases import DEB, release
from lab.service_view import CLIENT, until_logged
from lab.update_steps import client_requests_apply, request_apply, said, stage, start_client

pytestmark = pytest.mark.usefixtures("quiet")


@pytest.mark.slow
def test_a_flood_of_checks_does_not_make_the_new_client_look_dead(machine):
    stage(machine, "1.1")
    client = start_client(machine, "alice")
    machine.misbehave(UPDATES, None, "mute")
    with flood_of_checks(machine):
        machine.wait_for_log(RELAUNCHED, after=client_requests_apply(machine, client))


@pytest.mark.slow
def test_a_removal_does_not_wait_for_a_download(machine):
    machine.publish(release("1.1"))
    came = machine.misbehave(DOWNLOADS, f"/packages/1.1/{DEB}", "hang")
    assert came.wait(120)  # the service begins its first check by itself
    lines = len(machine.log())
    machine.run("apt-get remove -y vantrell-harbor", timeout=30)
    assert machine.log()[lines:] == [CHECK_KILLED, "ended with status KILL"]
    assert machine.run("systemctl --failed --no-legend") == ""


def test_a_poweroff_waits_for_an_install_and_hooks_do_not_end_it(machine):
    add_asking_hook(machine)
    stage(machine, "1.1", *gate(machine, "preinst"))
    with last_look(machine, "dpkg-query -W vantrell-harbor; dpkg --audit") as seen:
        request_apply(machine)
        run_at_gate(machine, f"systemctl poweroff; {until_logged(INSTALL_DELAYS_STOP)}")
        assert seen() == "vantrell-harbor\t1.1\n"


@pytest.mark.slow
def test_only_a_running_unit_of_the_same_second_keeps_a_client_from_its_start(machine):
    stage(machine, "1.1", "--behaviour", "die-after 0", "--behaviour", "exit-code 3")
    alice = machine.login("alice")
    machine.wait_for_log(NOT_STAYED,
                         after=client_requests_apply(machine, alice.start([CLIENT])))
    # A unit that has failed would keep its name too.
    assert alice.run(f"systemctl --user list-units --all --no-legend '{UNIT_NAME}*'") == ""

    machine.write("/usr/share/vantrell-harbor/behaviour", "stay")
    stage(machine, "1.2")
    client = alice.start([CLIENT])
    take_unit_names(alice)
    _, why, *story = said(machine, client_requests_apply(machine, client), "ended with status")
    assert why.startswith(NO_START.format("alice") + "Failed to start transient service unit: "
                          f"Unit {UNIT_NAME}")
    assert story == [APPLIED_ALONE.format("1.2"), *ENDED]
