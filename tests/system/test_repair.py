"""What kills, full disks and mistakes leave, and how the start and the timer repair it."""

from collections import namedtuple

import pytest

from lab import damage, kill_rounds
from lab import log_lines as log
from lab.check_pass import NOTHING, STAGED, check
from lab.disturbances import interrupt_foreign_package, pretend_install, remove_socket
from lab.footprint import package_state, wait_for_package
from lab.held_install import package_lock, run_at_gate, stage_held
from lab.kill_rounds import VICTIMS, Round
from lab.machine import SERVICE, SOCKET, Machine
from lab.service_view import (COPY, REPAIR, REPAIR_LOG, SOCKET_UNIT, STAGING, STATE, ask,
                              digest_of, kept, main_pid, restart, set_timer, until_logged)
from lab.update_steps import (accept, client_requests_apply, request_apply, said, stage,
                              start_client)

SERVICE_ALONE = f"{VICTIMS['service']}; {until_logged(log.WAITED)}"


@pytest.mark.parametrize("place, kill, repair, next_pass", [
    ("unpacking", f"ls /usr/bin/*.dpkg-new && {VICTIMS['both']}",
     [log.FINISHED, log.NO_PROVED_FILE], STAGED),
    ("postinst", VICTIMS["both"], [log.FINISHED, "Setting up vantrell-harbor (1.1) ..."],
     log.UP_TO_DATE),
    ("postinst", SERVICE_ALONE, [log.WAITED], log.UP_TO_DATE),
], ids=["all while unpacking", "all in postinst", "the service alone"])
def test_the_next_start_repairs_the_package_and_the_next_release_installs(
        quiet, place, kill, repair, next_pass):
    machine = quiet
    stage_held(machine, "1.1", place)
    lines = request_apply(machine)
    run_at_gate(machine, kill)
    assert said(machine, lines, "listening on")[:-1] == [
        log.NO_COPY, "ended with status KILL", *repair]
    assert machine.run(["ls", "/var/lib/dpkg/updates"]) == ""
    assert machine.send("STATUS") == "IDLE - "
    assert kept(machine) == NOTHING

    assert check(machine)[-1] == next_pass
    stage(machine, "1.2")
    assert said(machine, request_apply(machine), "listening on")[:-1] == [
        log.NO_COPY, log.APPLIED_ALONE.format("1.2"), *log.ENDED]
    assert package_state(machine) == "installed ok 1.2"


@pytest.mark.parametrize("place, victim, version, repair", [
    ("rollback", "both", "1.1", [log.FINISHED, log.REINSTALLED]),
    ("rollback", "apt tree", "1.1", [log.FINISHED, log.REINSTALLED]),
    ("postinst", "apt tree", "1.2", [log.FINISHED]),
])
def test_a_killed_install_ends_as_a_whole_package(quiet, place, victim, version, repair):
    machine = quiet
    accept(machine, "1.1")
    stage_held(machine, "1.2", place)
    by_timer = victim == "apt tree"  # the service has not ended
    set_timer(machine, 1 if by_timer else 600)
    old = main_pid(machine)
    lines = client_requests_apply(machine, start_client(machine, "alice"))
    # While an install of ours runs, the repair says and does nothing.
    assert run_at_gate(machine, f"systemctl start {REPAIR} && {REPAIR_LOG} && "
                       f"{VICTIMS[victim]}") == ""
    wait_for_package(machine, version)
    machine.wait_for_log("listening on", after=lines)
    seen = machine.run(REPAIR_LOG).splitlines() if by_timer else machine.log()[lines:]
    assert [line for line in seen if line in (log.FINISHED, log.REINSTALLED)] == repair
    assert main_pid(machine) != old
    assert ask(machine, "STATUS").startswith("IDLE - ")


Left = namedtuple("Left", "by said copy")
LEFT = [
    Left("the copy is cut", [log.COPIED_AGAIN], True),
    Left("the copy is a link", [log.COPIED_AGAIN], True),
    Left("a repair was killed between its two moves", [log.COPIED_AGAIN], True),
    Left("the copy has moved, and others may read its directory", [log.COPIED_AGAIN], True),
    Left("staged files have strange names, and a link leads to /root/precious", [], True),
    Left("the copy and the staged file are cut", [log.COPY_REMOVED], False),
    Left("no record names the copy", [log.COPY_REMOVED], False),
]


def test_a_start_proves_the_rollback_copy_and_sweeps_what_was_staged(quiet):
    machine = quiet
    accept(machine, "1.1")
    good = digest_of(machine, COPY)
    for left in LEFT:
        machine.run(f"mkdir -p {STAGING}/1.1; {damage.TO_COPY[left.by]}")
        lines = len(machine.log())
        restart(machine)
        assert machine.log()[lines:][2:-1] == left.said, left
        assert [name for name in kept(machine) if name.startswith("client-")] == [
            "client-rollback 700", *["client-rollback/previous.deb 644"] * left.copy,
            "client-staging 755"], left
        if left.copy:
            assert digest_of(machine, COPY) == good, left
    assert machine.exists("/root/precious/file")


def test_a_cloned_machine_gets_an_install_id_of_its_own(machine):
    check(machine)
    before = machine.read(f"{STATE}/install-id")
    for by, cloned in (("true", False), (f"rm {STATE}/machine-id", False),
                       (f": >{STATE}/machine-id", False),
                       ("systemd-id128 new >/etc/machine-id", True)):
        machine.run(f"{by}; systemctl restart {SERVICE}")
        assert (log.CLONED in machine.log()) == cloned, by
        assert machine.exists(f"{STATE}/install-id") != cloned, by
    check(machine)
    assert machine.read(f"{STATE}/install-id") not in ("", before)


def test_a_process_that_a_postinst_leaves_does_not_delay_the_start(machine):
    interrupt_foreign_package(machine)
    for _ in range(2):  # the process outlives the first start
        machine.run(["systemctl", "restart", SERVICE], timeout=30)
    assert machine.run("dpkg --audit; dpkg-query -W -f '${db:Status-Status}' foreign") == \
        "installed"
    assert machine.run(["pgrep", "--count", "sleep"]) == "1\n"


def test_a_failing_postinst_is_run_by_the_next_start_but_not_at_each_turn_of_the_timer(quiet):
    machine = quiet
    stage(machine, "1.1", "--postinst", "[ -e /run/mended ] || exit 9")
    machine.wait_for_log(log.REFUSED + "swap failed", after=request_apply(machine))
    with package_lock(machine):  # another program is at work
        assert machine.run(f"systemctl start {REPAIR}; {REPAIR_LOG}") == ""
    machine.run(f"for turn in 1 2 3; do systemctl start {REPAIR}; done")
    assert machine.run(REPAIR_LOG).count(log.FINISHED) == 1
    machine.run(f"touch /run/mended; systemctl restart {SERVICE}")
    assert package_state(machine) == "installed ok 1.1"


def test_the_timer_brings_back_the_socket_that_a_second_instance_removed(machine):
    with pretend_install(machine):
        assert "listening on" in remove_socket(machine)
        assert not machine.exists(SOCKET)
        assert machine.run(f"systemctl start {REPAIR}; {REPAIR_LOG}") == ""
    # No installs of ours. Any user can start sudo under this name.
    with pretend_install(machine, "alice"), pretend_install(machine, mode="4755"):
        lines = len(machine.log())
        set_timer(machine, 1)
        machine.wait_for_log("listening on", after=lines)
    assert ask(machine, "STATUS") == "IDLE - "
    assert machine.run(["systemctl", "is-active", SOCKET_UNIT, SERVICE]) == "active\n" * 2


@pytest.mark.long
@pytest.mark.usefixtures("power_cut")
def test_a_machine_is_whole_after_kills_at_any_moment():
    with Machine(durable=True) as machine:
        seconds = kill_rounds.prepare(machine)
        for given in (Round("install", "power", 0.6), Round("rollback", "apt tree", 0.5)):
            _, seconds = kill_rounds.play(machine, given, seconds)
