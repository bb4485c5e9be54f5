"""What kills, full disks and mistakes leave, and how the start and the timer repair it."""

import subprocess
from collections import namedtuple

import pytest

from lab import kill_rounds
from lab.check_pass import NOTHING, STAGED, check
from lab.disturbances import interrupt_foreign_package, pretend_install
from lab.footprint import package_state, wait_for_package
from lab.held_install import gate, run_at_gate
from lab.kill_rounds import VICTIMS, Round
from lab.log_lines import (APPLIED_ALONE, CLONED, COPIED_AGAIN, COPY_REMOVED, ENDED, FINISHED,
                           NO_COPY, NO_PROVED_FILE, REFUSED, REINSTALLED, WAITED)
from lab.machine import SERVICE, SOCKET, Machine
from lab.releases import package
from lab.service_view import (COPY, PROGRAM, RECORD, REPAIR, REPAIR_LOG, SOCKET_UNIT, STAGING,
                              STATE, ask, digest_of, kept, main_pid, restart, set_timer,
                              until_logged)
from lab.update_steps import (accept, client_requests_apply, request_apply, said, stage,
                              start_client)

SERVICE_ALONE = f"{VICTIMS['service']}; {until_logged(WAITED)}"
UP_TO_DATE = "[UpdateSvc] up to date"


@pytest.mark.parametrize("place, kill, repair, next_pass", [
    ("unpacking", f"ls /usr/bin/*.dpkg-new; {VICTIMS['both']}", [FINISHED, NO_PROVED_FILE], STAGED),
    ("postinst", VICTIMS["both"], [FINISHED, "Setting up vantrell-harbor (1.1) ..."], UP_TO_DATE),
    ("postinst", SERVICE_ALONE, [WAITED], UP_TO_DATE),
], ids=["all while unpacking", "all in postinst", "the service alone"])
def test_the_next_start_repairs_the_package_and_the_next_release_installs(
        quiet, place, kill, repair, next_pass):
    machine = quiet
    stage(machine, "1.1", *gate(machine, place))
    lines = request_apply(machine)
    run_at_gate(machine, kill)
    assert said(machine, lines, "listening on")[:-1] == [
        NO_COPY, "ended with status KILL", *repair]
    assert machine.run(["ls", "/var/lib/dpkg/updates"]) == ""
    assert machine.send("STATUS") == "IDLE - "
    assert kept(machine) == NOTHING

    assert check(machine)[-1] == next_pass
    stage(machine, "1.2")
    assert said(machine, request_apply(machine), "listening on")[:-1] == [
        NO_COPY, APPLIED_ALONE.format("1.2"), *ENDED]
    assert package_state(machine) == "installed ok 1.2"


@pytest.mark.parametrize("place, victim, version, repair", [
    ("rollback", "both", "1.1", [FINISHED, REINSTALLED]),
    ("rollback", "apt tree", "1.1", [FINISHED, REINSTALLED]),
    ("postinst", "apt tree", "1.2", [FINISHED]),
])
def test_a_killed_install_ends_as_a_whole_package(quiet, place, victim, version, repair):
    machine = quiet
    accept(machine, "1.1")
    if place == "rollback":
        gate(machine, "unpacking", COPY)
        stage(machine, "1.2", "--behaviour", "die-after 0")
    else:
        stage(machine, "1.2", *gate(machine, place))
    by_timer = victim == "apt tree"  # the service has not ended
    set_timer(machine, 1 if by_timer else 600)
    old = main_pid(machine)
    lines = client_requests_apply(machine, start_client(machine, "alice"))
    # While an install of ours runs, the repair says and does nothing.
    assert run_at_gate(machine, f"systemctl start {REPAIR} && {REPAIR_LOG} && "
                       f"{VICTIMS[victim]}") == ""
    wait_for_package(machine, version)
    machine.wait_for_log("listening on", after=lines)
    log = machine.run(REPAIR_LOG).splitlines() if by_timer else machine.log()[lines:]
    assert [line for line in log if line in (FINISHED, REINSTALLED)] == repair
    assert main_pid(machine) != old
    assert ask(machine, "STATUS").startswith("IDLE - ")


Left = namedtuple("Left", "what by said copy")
LEFT = [
    Left("a copy that a full disk cut", f"cp {COPY} {STAGING}/1.1/; truncate -s 70416 {COPY}",
         [COPIED_AGAIN], True),
    Left("a copy that is a link", f"cp {COPY} {STAGING}/1.1/a.deb; mv {COPY} /root/good.deb; "
         f"ln -s /root/good.deb {COPY}", [COPIED_AGAIN], True),
    Left("no copy of what is recorded, and its directory open to all",
         f"mv {COPY} {STAGING}/1.1/-.deb; chmod 755 $(dirname {COPY})", [COPIED_AGAIN], True),
    Left("staged files of strange names, and a link to what is precious",
         f"cd {STAGING}; mkdir -p 1.1/-rf '2 \n*'; ln -s /root/precious 1.2; "
         "ln -s /root/precious/file 1.1/x.deb", [], True),
    Left("a copy and a staged file that are both cut",
         f"head -c 70416 {COPY} >{STAGING}/1.1/a.deb; cp {STAGING}/1.1/a.deb {COPY}",
         [COPY_REMOVED], False),
    Left("a copy that no record names", f"cp /root/good.deb {COPY}; : >{RECORD}", [COPY_REMOVED],
         False),
]


def test_a_start_proves_the_rollback_copy_and_sweeps_what_was_staged(quiet):
    machine = quiet
    accept(machine, "1.1")
    good = digest_of(machine, COPY)
    machine.run("mkdir /root/precious; touch /root/precious/file")
    for left in LEFT:
        machine.run(f"mkdir -p {STAGING}/1.1; {left.by}")
        lines = len(machine.log())
        restart(machine)
        assert machine.log()[lines:][2:-1] == left.said, left.what
        assert [name for name in kept(machine) if name.startswith("client-")] == [
            "client-rollback 700", *["client-rollback/previous.deb 644"] * left.copy,
            "client-staging 755"], left.what
        if left.copy:
            assert digest_of(machine, COPY) == good, left.what
    assert machine.exists("/root/precious/file")


def test_a_cloned_machine_gets_an_install_id_of_its_own(machine):
    check(machine)
    before = machine.read(f"{STATE}/install-id")
    for by, cloned in (("true", False), (f"rm {STATE}/machine-id", False),
                       (f": >{STATE}/machine-id", False),
                       ("systemd-id128 new >/etc/machine-id", True)):
        machine.run(f"{by}; systemctl restart {SERVICE}")
        assert (CLONED in machine.log()) == cloned, by
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
    machine.wait_for_log(REFUSED + "swap failed", after=request_apply(machine))
    machine.run(f"for turn in 1 2 3; do systemctl start {REPAIR}; done")
    assert machine.run(REPAIR_LOG).count(FINISHED) == 1
    machine.run(f"touch /run/mended; systemctl restart {SERVICE}")
    assert package_state(machine) == "installed ok 1.1"


def test_the_timer_brings_back_the_socket_that_a_second_instance_removed(machine):
    install = pretend_install(machine)
    second = machine.popen([PROGRAM, "--help"], stderr=subprocess.PIPE)
    assert b"listening on" in second.stderr.readline()
    second.terminate()
    second.wait()
    assert not machine.exists(SOCKET)
    machine.run(["systemctl", "start", REPAIR])
    assert machine.run(REPAIR_LOG) == ""  # an install of ours runs
    install.kill()
    install.wait()
    pretend_install(machine, "alice")  # no install of ours
    lines = len(machine.log())
    set_timer(machine, 1)
    machine.wait_for_log("listening on", after=lines)
    assert ask(machine, "STATUS") == "IDLE - "
    assert machine.run(["systemctl", "is-active", SOCKET_UNIT, SERVICE]) == "active\n" * 2


@pytest.mark.slow
@pytest.mark.skipif(kill_rounds.missing() != "", reason=kill_rounds.missing())
def test_a_machine_is_whole_after_kills_at_any_moment():
    with Machine(durable=True) as machine:
        seconds = kill_rounds.prepare(machine)
        for given in (Round("install", "power", 0.6), Round("rollback", "apt tree", 0.5)):
            _, seconds = kill_rounds.play(machine, given, seconds)
