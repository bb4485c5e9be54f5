"""What kills, full disks and mistakes leave, and how the start and the timer repair it."""

import collections
import hashlib
import subprocess

import pytest
from conftest import SERVICE

from lab import kill_rounds
from lab.client_log import running
from lab.held_install import gate, run_at_gate
from lab.kill_rounds import Round
from lab.machine import SOCKET, Machine
from lab.releases import package
from lab.service_view import CLIENT, STATE, ask, kept, main_pid
from lab.update_steps import client_requests_apply, request_apply, stage

SOCKET_UNIT = SERVICE.replace(".service", ".socket")
REPAIR = SERVICE.replace(".service", "-repair.service")
TIMER = SERVICE.replace(".service", "-repair.timer")
COPY, RECORD, STAGING = (f"{STATE}/{name}" for name in (
    "client-rollback/previous.deb", "installed.sha256", "client-staging"))
WHOLE = "dpkg --audit; dpkg -V vantrell-harbor; ls /var/lib/dpkg/updates; dpkg-query -W " \
    "-f '${db:Status-Status} ${db:Status-Eflag} ${Version}' vantrell-harbor"
HEALED = "dpkg was interrupted; finishing its work"
REINSTALLED = "vantrell-harbor is damaged; installing the rollback copy"
RESTORED = "the rollback copy was missing or damaged; made it again from the staged package"
REMOVED = ("no rollback copy: no file here is the package that was accepted last; the next release "
           "that is accepted gives one")
SAID_BY_REPAIR = f"journalctl --sync; journalctl --quiet --output=cat _SYSTEMD_UNIT={REPAIR}"
CLONED = "the install id was made on another machine; the service makes a new one"


@pytest.fixture
def accepted(quiet_machine):
    """Release 1.1 is accepted, so that the machine has its rollback copy and record."""
    machine = quiet_machine
    stage(machine, "1.1")
    machine.wait_for_log("listening on", after=request_apply(machine))
    machine.withdraw()
    return machine


Left = collections.namedtuple("Left", "what by said copy")
LEFT = [
    Left("a copy that a full disk cut", f"cp {COPY} {STAGING}/1.1/; truncate -s 70416 {COPY}",
         [RESTORED], True),
    Left("a copy that is a link", f"cp {COPY} {STAGING}/1.1/a.deb; mv {COPY} /root/good.deb; "
         f"ln -s /root/good.deb {COPY}", [RESTORED], True),
    Left("no copy of what is recorded, and its directory open to all",
         f"mv {COPY} {STAGING}/1.1/-.deb; chmod 755 {STATE}/client-rollback", [RESTORED], True),
    Left("staged files of strange names, and a link to what is precious",
         f"cd {STAGING}; mkdir -p 1.1/-rf '2 \n*'; ln -s /root/precious 1.2; "
         "ln -s /root/precious/file 1.1/x.deb", [], True),
    Left("a copy and a staged file that are both cut",
         f"head -c 70416 {COPY} >{STAGING}/1.1/a.deb; cp {STAGING}/1.1/a.deb {COPY}",
         [REMOVED], False),
    Left("a copy that no record names", f"cp /root/good.deb {COPY}; : >{RECORD}", [REMOVED], False),
]


def test_a_start_proves_the_rollback_copy_and_sweeps_what_was_staged(accepted):
    machine = accepted
    assert "client-staging/1.1 755" not in kept(machine)
    good = hashlib.sha256(package("1.1").read_bytes()).hexdigest()
    machine.run("mkdir /root/precious; touch /root/precious/file")
    for left in LEFT:
        machine.run(f"mkdir -p {STAGING}/1.1; {left.by}")
        lines = len(machine.log())
        machine.run(["systemctl", "restart", SERVICE])
        machine.wait_for_log("listening on", after=lines)
        assert (left.what, machine.log()[lines:][2:-1]) == (left.what, left.said)
        assert [name for name in kept(machine) if name.startswith("client-")] == [
            "client-rollback 700", *["client-rollback/previous.deb 644"] * left.copy,
            "client-staging 755"], left.what
        if left.copy:
            assert good in machine.run(["sha256sum", COPY]), left.what
    assert machine.exists("/root/precious/file")


def test_a_cloned_machine_gets_an_install_id_of_its_own(machine):
    assert ask(machine, "CHECK") == "OK checking"
    machine.wait_for_log("up to date")
    before = machine.read(f"{STATE}/install-id")
    for cloned, by in ((False, "true"), (False, f"rm {STATE}/machine-id"),
                       (False, f": >{STATE}/machine-id"),
                       (True, "systemd-id128 new >/etc/machine-id")):
        machine.run(f"{by}; systemctl restart {SERVICE}")
        assert (by, CLONED in machine.log()) == (by, cloned)
        assert (by, machine.exists(f"{STATE}/install-id")) == (by, not cloned)
    assert ask(machine, "CHECK") == "OK checking"
    machine.run(f"until [ -s {STATE}/install-id ]; do sleep 0.05; done")
    assert machine.read(f"{STATE}/install-id") != before


FOREIGN = """mkdir -p /root/foreign/DEBIAN && cd /root && cat >foreign/DEBIAN/control <<'END'
Package: foreign
Version: 1
Architecture: all
Maintainer: Somebody <somebody@vantrell.example>
Description: a package whose postinst leaves a process
END
printf '#!/bin/sh\\n[ -e /root/ready ] || exit 1\\nsleep 300 &\\n' >foreign/DEBIAN/postinst
chmod 755 foreign/DEBIAN/postinst; dpkg-deb --build foreign; ! dpkg --install foreign.deb
dpkg-query --status foreign >/var/lib/dpkg/updates/0000; touch /root/ready"""


def test_a_process_that_a_postinst_leaves_does_not_delay_the_start(machine):
    machine.run(FOREIGN)
    for _ in range(2):  # the process outlives the first start
        machine.run(["systemctl", "restart", SERVICE], timeout=30)
    assert machine.run("dpkg --audit; dpkg-query -W -f '${db:Status-Status}' foreign") == \
        "installed"
    assert machine.run(["pgrep", "--count", "sleep"]) == "1\n"


EVERYTHING = f"echo 1 >/sys/fs/cgroup/system.slice/{SERVICE}/cgroup.kill"
THE_APT_TREE = "kill -9 $(grep -lszx VANTRELL_UPDATE_APPLY=1 /proc/[0-9]*/environ | cut -d / -f 3)"


def hurry(machine, timer_seconds):
    machine.write(f"/etc/systemd/system/{TIMER}.d/hurry.conf", "[Timer]\nOnActiveSec=\n"
                  f"OnUnitInactiveSec=\nOnActiveSec={timer_seconds}\nAccuracySec=0.1\n"
                  f"OnUnitInactiveSec={timer_seconds}\n")
    machine.run(f"systemctl daemon-reload; systemctl restart {TIMER}")


def wait_until_whole(machine, version):
    machine.run(["bash", "-c", f'until [ "$({WHOLE})" = "installed ok $0" ]; do sleep 0.2; done',
                 version], timeout=60)


Killed = collections.namedtuple("Killed", "place what by_timer version said")
KILLED = [
    Killed("rollback", EVERYTHING, False, "1.1", [HEALED, REINSTALLED]),
    Killed("rollback", THE_APT_TREE, True, "1.1", [HEALED, REINSTALLED]),
    Killed("postinst", THE_APT_TREE, True, "1.2", [HEALED]),
]


@pytest.mark.parametrize("killed", KILLED, ids=[
    "a rollback, by the next start", "a rollback, by the timer", "an install, by the timer"])
def test_a_killed_install_ends_as_a_whole_package(accepted, killed):
    machine = accepted
    if killed.place == "rollback":
        gate(machine, "unpacking", COPY)
        stage(machine, "1.2", "--behaviour", "die-after 0")
    else:
        stage(machine, "1.2", *gate(machine, "postinst"))
    hurry(machine, 1 if killed.by_timer else 600)
    old = main_pid(machine)
    client = running(machine, machine.login("alice").start([CLIENT]))
    lines = client_requests_apply(machine, client)
    # While an install of ours runs, the repair says and does nothing.
    assert run_at_gate(machine, f"systemctl start {REPAIR} && {SAID_BY_REPAIR} && "
                       f"{killed.what}") == ""
    wait_until_whole(machine, killed.version)
    machine.wait_for_log("listening on", after=lines)
    by_start, by_timer = machine.log()[lines:], machine.run(SAID_BY_REPAIR).splitlines()
    assert [line for line in (by_timer if killed.by_timer else by_start)
            if line in (HEALED, REINSTALLED)] == killed.said
    assert main_pid(machine) != old and ask(machine, "STATUS").startswith("IDLE - ")


def test_a_postinst_that_always_fails_is_not_run_at_each_turn_of_the_timer(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1", "--postinst", "exit 9")
    machine.wait_for_log("apply refused", after=request_apply(machine))
    machine.run(f"for turn in 1 2 3; do systemctl start {REPAIR}; done")
    assert machine.run(SAID_BY_REPAIR).count(HEALED) == 1


def test_the_timer_brings_back_the_socket_that_a_second_instance_removed(machine):
    machine.run("cp /usr/bin/sleep /run/apt-get")
    mark = {"VANTRELL_UPDATE_APPLY": "1"}
    apply = machine.popen(["/run/apt-get", "600"], env=mark)
    second = machine.popen(["/usr/sbin/vantrell-harbor-updated", "--help"], stderr=subprocess.PIPE)
    assert b"listening on" in second.stderr.readline()
    second.terminate()
    second.wait()
    assert not machine.exists(SOCKET)
    machine.run(["systemctl", "start", REPAIR])
    assert machine.run(SAID_BY_REPAIR) == ""  # an install of ours runs
    apply.kill()
    apply.wait()
    machine.popen(["/run/apt-get", "600"], user="alice", env=mark)  # no install of ours
    lines = len(machine.log())
    hurry(machine, 1)
    machine.wait_for_log("listening on", after=lines)
    assert ask(machine, "STATUS") == "IDLE - "
    assert machine.run(["systemctl", "is-active", SOCKET_UNIT, SERVICE]) == "active\n" * 2


def timer_state(machine):
    return machine.run(["systemctl", "is-enabled", TIMER], check=False).split()[:1] + \
        machine.run(["systemctl", "is-active", TIMER], check=False).split()


def test_the_package_treats_the_timer_as_it_treats_the_service(bare_machine):
    machine = bare_machine
    machine.install(package("0.9", "--no-service"))
    machine.push(package("1.0"), "/var/tmp/1.0.deb")
    # An apply by a service that had no timer yet.
    machine.run("apt-get install -y /var/tmp/1.0.deb", env={"VANTRELL_UPDATE_APPLY": "1"})
    assert timer_state(machine) == ["enabled", "active"]
    machine.run(["systemctl", "disable", "--now", TIMER])
    machine.install(package("1.1"))
    assert timer_state(machine) == ["disabled", "inactive"]
    machine.run(["systemctl", "enable", "--now", TIMER])
    machine.run("apt-get remove -y vantrell-harbor")
    assert timer_state(machine)[1:] == ["inactive"]
    machine.install(package("1.1"))
    assert timer_state(machine) == ["enabled", "active"]


@pytest.mark.slow
@pytest.mark.skipif(kill_rounds.missing() != "", reason=kill_rounds.missing())
def test_a_machine_is_whole_after_kills_at_any_moment():
    with Machine(durable=True) as machine:
        seconds = kill_rounds.prepare(machine)
        for given in (Round("install", "power", 0.6), Round("rollback", "apt tree", 0.5)):
            _, seconds = kill_rounds.play(machine, given, seconds)
