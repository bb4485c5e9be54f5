"""An install that is killed or fails halfway: the next start of the service ends its work."""

from typing import NamedTuple

import pytest
from conftest import ENDED, NO_COPY, SERVICE

from lab.check_pass import NOTHING, STAGED, check
from lab.held_install import gate, run_at_gate
from lab.service_view import kept
from lab.update_steps import request_apply, said, stage

ALL = f"echo 1 >/sys/fs/cgroup/system.slice/{SERVICE}/cgroup.kill"
WAITING = "waiting for an install that outlived the service"
SERVICE_ALONE = (f"kill -9 $(systemctl show -P MainPID {SERVICE}); until journalctl -u {SERVICE} | "
                 f"grep -q '{WAITING}'; do sleep 0.1; done")
REPAIRED = "dpkg was interrupted; finishing its work"
NO_PROVED_FILE = ("vantrell-harbor is damaged, and no package file here is proved to be the right "
                  "one; install it by hand: apt-get install --reinstall ./FILE.deb")
UP_TO_DATE = "[UpdateSvc] up to date"


class Kill(NamedTuple):
    place: str
    command: str
    repair: list  # the lines that it logs
    next_pass: str


@pytest.mark.parametrize("kill", [
    Kill("unpacking", f"ls /usr/bin/*.dpkg-new && {ALL}", [REPAIRED, NO_PROVED_FILE], STAGED),
    Kill("postinst", ALL, [REPAIRED, "Setting up vantrell-harbor (1.1) ..."], UP_TO_DATE),
    Kill("postinst", SERVICE_ALONE, [WAITING], UP_TO_DATE),
], ids=["all while unpacking", "all in postinst", "the service alone"])
def test_the_next_start_repairs_the_package_and_the_next_release_installs(quiet_machine, kill):
    machine = quiet_machine
    stage(machine, "1.1", *gate(machine, kill.place))
    lines = request_apply(machine)
    run_at_gate(machine, kill.command)
    assert said(machine, lines, "listening on")[:-1] == [
        NO_COPY, "ended with status KILL", *kill.repair]
    assert machine.run(["ls", "/var/lib/dpkg/updates"]) == ""
    assert machine.send("STATUS") == "IDLE - "
    assert kept(machine) == NOTHING

    assert check(machine)[-1] == kill.next_pass
    stage(machine, "1.2")
    assert said(machine, request_apply(machine), "listening on")[:-1] == [
        NO_COPY, "[UpdateSvc] applied 1.2; no console session to relaunch into", *ENDED]
    assert machine.run("dpkg-query -W vantrell-harbor; dpkg --audit; dpkg -V vantrell-harbor; "
                       "find / -xdev -name '*.dpkg-*'") == "vantrell-harbor\t1.2\n"


def test_the_next_start_configures_a_package_whose_postinst_failed(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1", "--postinst", "! mkdir /run/tried || exit 9")
    machine.wait_for_log("apply refused: swap failed", 120, request_apply(machine))
    machine.run(["systemctl", "restart", SERVICE])
    assert machine.run("dpkg-query -W vantrell-harbor; dpkg --audit") == "vantrell-harbor\t1.1\n"
