"""A new build of the service that does not run is taken back, and a good one is left alone."""

from collections import namedtuple

import pytest

from lab import log_lines as log
from lab.check_pass import check
from lab.control_program import facts
from lab.damage import IN_RESCUE, KEPT_CUT, NO_ROOM_FOR_PACKAGE
from lab.disturbances import abort_by_flood
from lab.footprint import package_state
from lab.machine import SERVICE
from lab.releases import package
from lab.service_view import (COPY, FAILURES, KEPT, LOCKS, RECORD, REPAIR, RESCUE, ask, digest_of,
                              end_unexpectedly, failed_units, file_kind, restart)
from lab.update_steps import accept, request_apply, said, stage

DEAD = ("--daemon", "exit 127")
TOLD = ("a new build of the service did not run, and the earlier one was installed again; this "
        "ends with a newer release")
Broken = namedtuple("Broken", "version daemon ends seconds")
BROKEN = [
    Broken("1.2", "exit 127", "127", 30),
    Broken("1.3", "sleep 1; kill -SEGV $$", "SEGV", 30),
    Broken("1.4", "systemd-notify --ready; sleep 1; exit 1", "1", 30),
    Broken("1.5", "exec env --ignore-signal=TERM sleep infinity", "KILL", 120),
]


def install(machine, version, *options):
    """Has the service install a release; returns the number of log lines at its end."""
    stage(machine, version, *options)
    machine.wait_for_log("ended with status 75", after=request_apply(machine))
    return len(machine.log())


def prove(machine):
    """The timer's runs after which a build that still runs has proved itself."""
    machine.run(f"systemctl start {REPAIR}; systemctl start {REPAIR}")


@pytest.mark.long
def test_a_build_that_does_not_run_is_taken_back(quiet):
    machine = quiet
    accept(machine, "1.1")
    for broken in BROKEN:
        lines = install(machine, broken.version, "--daemon", broken.daemon)
        assert said(machine, lines, "listening on", broken.seconds)[:-1] == [
            *[f"ended with status {broken.ends}"] * 3,
            log.TAKEN_BACK.format(broken.version)], broken
        assert ask(machine, "STATUS") == "IDLE - ", broken
        assert package_state(machine) == "installed ok 1.1", broken
        assert failed_units(machine) == [RESCUE], broken
    assert check(machine)[-1] == log.UP_TO_DATE  # the last one is still offered
    assert facts(machine)["attention"] == [TOLD]
    prove(machine)
    machine.run(f"rm /run/vantrell-harbor-rescue.*; systemctl reset-failed; "
                f"systemctl restart {REPAIR} {RESCUE}", check=False)
    assert failed_units(machine) == [RESCUE]  # as after a boot

    accept(machine, "1.6")
    for _ in range(4):
        restart(machine)
        end_unexpectedly(machine, "KILL")  # as the kernel does when memory is short
    restart(machine)
    machine.run(f"echo 2 >{FAILURES}")
    abort_by_flood(machine)
    assert ask(machine, "STATUS") == "IDLE - "
    assert package_state(machine) == "installed ok 1.6"
    prove(machine)
    assert failed_units(machine) == []
    assert machine.run(f"ls {KEPT}").split() == [f"{digest_of(machine, COPY)}.deb", "state"]
    for lock in LOCKS:
        assert file_kind(machine, lock) == "regular empty file 600 root", lock

    accept(machine, "1.7")
    machine.run(f"systemctl stop {SERVICE}; echo 3 >{FAILURES}")
    machine.install(package("1.6"), "--allow-downgrades")
    restart(machine)
    assert package_state(machine) == "installed ok 1.6"
    assert failed_units(machine) == []  # no rescue: an administrator has done it


def test_a_rescue_that_was_killed_is_completed_by_the_next_start(quiet):
    machine = quiet
    accept(machine, "1.1")
    good = digest_of(machine, COPY)
    lines = install(machine, "1.2", *DEAD)
    said(machine, lines, "listening on")
    record = machine.read(RECORD)
    machine.push(package("1.2", *DEAD), "/root/1.2.deb")
    for moment, made in IN_RESCUE.items():
        machine.run(f"systemctl stop {REPAIR}; {made}")
        restart(machine)
        assert machine.read(RECORD) == record, moment
        assert machine.read(f"{KEPT}/state") == f"{good} proved {good}\n", moment
        assert digest_of(machine, COPY) == good, moment
        assert machine.run(f"ls {KEPT} $(dirname {COPY})").count(".deb") == 2, moment


@pytest.mark.long
def test_a_build_without_a_package_to_go_back_to_waits_for_a_hand(quiet):
    machine = quiet
    lines = install(machine, "1.0.1", *DEAD)  # the first release: no package is known
    machine.wait_for_log(log.NONE_EARLIER.format("1.0.1"), after=lines)
    lines = len(machine.log())
    machine.install(package("1.0.2"))
    said(machine, lines, "listening on")
    said(machine, install(machine, "1.1", "--ballast", "1"), "listening on")
    prove(machine)
    machine.install(package("1.1.1"))  # nobody knows whether it runs: 1.1 is the one to go back to

    lines = install(machine, "1.2", *DEAD)
    machine.run(NO_ROOM_FOR_PACKAGE.damage)
    machine.wait_for_log(log.NO_ROOM.format("1.2"), after=lines)
    machine.run(f"apt-mark hold vantrell-harbor; {NO_ROOM_FOR_PACKAGE.repair}")
    assert said(machine, lines, "listening on")[-2] == log.TAKEN_BACK.format("1.2")
    assert machine.run("apt-mark showhold") == "vantrell-harbor\n"
    machine.run("apt-mark unhold vantrell-harbor")

    stage(machine, "1.3", *DEAD)
    machine.run(KEPT_CUT)
    machine.wait_for_log(log.NONE_EARLIER.format("1.3"), after=request_apply(machine))
    assert machine.version_of("vantrell-harbor") == "1.3"
