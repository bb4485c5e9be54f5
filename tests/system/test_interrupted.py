"""A SIGKILL in the middle of an install: the next start of the service makes good for it."""

import pytest
from conftest import ENDED, NO_COPY, SERVICE

from lab.check_pass import STAGED, check
from lab.service_view import kept
from lab.update_steps import request_apply, said, stage

# Whoever opens the gate to write waits for the install to come to it, and holds it there.
GATE = "[ ! -p /run/gate ] || read -r _ </run/gate || true"
# Lets through less than the first file of the package. apt-get gives dpkg a PATH of its own.
GATE_IN_UNPACKING = f"""#!/bin/bash
[[ $1 = --fsys-tarfile ]] || exec dpkg-deb.real "$@"
dpkg-deb.real "$@" | {{ head -c 300000; {GATE}; cat; }}
"""
ALL = f"echo 1 >/sys/fs/cgroup/system.slice/{SERVICE}/cgroup.kill"
SURVIVED = "waiting for an install that outlived the service"
SERVICE_ALONE = (f"kill -9 $(systemctl show -P MainPID {SERVICE}); until journalctl -u {SERVICE} | "
                 f"grep -q '{SURVIVED}'; do sleep 0.1; done")
HEALED = "dpkg was interrupted; finishing its work"


@pytest.mark.parametrize("place, kill, healing, next_pass", [
    ("preinst", ALL, [HEALED], STAGED),
    ("unpacking", f"ls /usr/bin/*.dpkg-new && {ALL}", [HEALED], STAGED),
    ("postinst", ALL, [HEALED, "Setting up vantrell-harbor (1.1) ..."], "[UpdateSvc] up to date"),
    ("postinst", SERVICE_ALONE, [SURVIVED], "[UpdateSvc] up to date"),
], ids=["preinst", "unpacking", "postinst", "apt-get lives on"])
def test_the_next_start_heals_what_was_killed(quiet_machine, place, kill, healing, next_pass):
    machine = quiet_machine
    if place == "unpacking":
        machine.run("mv /usr/bin/dpkg-deb /usr/bin/dpkg-deb.real")
        machine.write("/usr/bin/dpkg-deb", GATE_IN_UNPACKING, 0o755)
    stage(machine, "1.1", *([f"--{place}", GATE] if place != "unpacking" else []))
    staged = kept(machine)
    machine.run("mkfifo /run/gate")
    lines = request_apply(machine)
    machine.run(f"exec 3>/run/gate && rm /run/gate && {kill}", timeout=120)
    assert said(machine, lines, "listening on")[:-1] == [
        NO_COPY, "ended with status KILL", *healing]
    assert machine.run(["ls", "/var/lib/dpkg/updates"]) == ""
    assert (machine.send("STATUS"), kept(machine)) == ("IDLE - ", staged)

    assert check(machine)[-1] == next_pass
    stage(machine, "1.2")
    assert said(machine, request_apply(machine), "listening on")[:-1] == [
        NO_COPY, "[UpdateSvc] applied 1.2; no console session to relaunch into", *ENDED]
    assert len([line for line in machine.log() if "listening on" in line]) == 3
    assert machine.run("dpkg-query -W vantrell-harbor; dpkg --audit; dpkg -V vantrell-harbor; "
                       "find / -xdev -name '*.dpkg-*'") == "vantrell-harbor\t1.2\n"
