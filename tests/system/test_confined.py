"""The service in the sandbox of confined.conf: what it still does, and what it does not install."""

import pytest

from lab import log_lines as log
from lab.client_log import client_starts, only_client, told_to_end, wait_for_client
from lab.confined import SHIM, begin_pass_by_hand, confine, hold_apt_get, overwrite_package
from lab.footprint import package_state
from lab.held_install import run_at_gate, stage_held
from lab.kill_rounds import VICTIMS
from lab.last_look import last_look
from lab.machine import SERVICE
from lab.outside_world import BLOBS
from lab.releases import DEB, DIGEST, README, ROOT, fact, package, release
from lab.service_view import (CLIENT, CONFIG, COPY, INSTALL, STAGING, STATE, main_pid, restart,
                              until_logged)
from lab.stubs import unstub
from lab.update_steps import (client_requests_apply, refusal, request_apply, said, shut_window,
                              stage, start_client)

STAGED = f"{STAGING}/1.1/{DEB}"
REFUSED_CALL = "not an install of the update service, so nothing is installed: {}\n"
REFUSED_CALLS = [
    ["remove", "-y", "vantrell-harbor"],
    [*INSTALL, "bash"],
    [*INSTALL, f"{STAGING}/1.1/../../../x.deb"],
    [*INSTALL, f"{STAGING}/1.1/$HOME.deb"],
    [*INSTALL, STAGED, "-o", "x=y"],
    [*INSTALL[:-1], "Dpkg::Options::=--force-all", STAGED],
]


@pytest.fixture
def confined(quiet):
    quiet.run(f"rm -r {STATE} {CONFIG.rpartition('/')[0]}")  # the profile needs both
    confine(quiet)
    shut_window(quiet)
    return quiet


@pytest.mark.long
def test_a_confined_service_sets_the_ring_installs_judges_and_takes_back(confined):
    machine = confined
    assert machine.succeeds(["systemd-analyze", "security", "--threshold=30", SERVICE])
    write = f"nsenter -t {main_pid(machine)} -m touch /run/x /dev/shm/x /var/lib/x"
    assert machine.run(write, check=False).count("Read-only file system") == 3
    assert machine.send("SETRING beta") == "OK"
    assert machine.read(CONFIG).endswith("Channel=beta\n")
    assert machine.send("SETRING prod") == "OK"
    stage(machine, "1.1")
    client = machine.login("alice").start([CLIENT], env={"WAYLAND_DISPLAY": "1"})
    lines = client_requests_apply(machine, client)
    assert said(machine, lines, "ended with status") == [log.NO_COPY, log.RELAUNCHED, *log.ENDED]
    [first] = client_starts(machine, "1.1")
    assert "WAYLAND_DISPLAY=1" in first.environment
    stage(machine, "1.2", "--behaviour", "die-after 0")
    lines = request_apply(machine)
    assert said(machine, lines, log.NOT_STAYED) == [
        log.GONE + " (inactive)", log.ROLLBACK, log.RESTORED]
    assert told_to_end(machine, "1.1") == [first.pid]
    assert package_state(machine) == "installed ok 1.1"
    for call in REFUSED_CALLS:
        assert machine.run([SHIM, *call], check=False) == REFUSED_CALL.format(" ".join(call))
    machine.run(["kill", only_client(machine)])
    stage(machine, "1.3", "--daemon", "exit 127")
    assert said(machine, request_apply(machine), "listening on")[-2] == log.TAKEN_BACK.format("1.3")
    assert package_state(machine) == "installed ok 1.1"
    machine.run("for full in /tmp /var/tmp; do mount -t tmpfs -o nr_inodes=1 tmpfs $full; done")
    restart(machine)


def test_a_confined_install_outlives_a_kill_of_the_service_and_a_poweroff(confined):
    machine = confined
    stage_held(machine, "1.1", "postinst")
    lines = request_apply(machine)
    run_at_gate(machine, f"{VICTIMS['both']}; {until_logged(log.WAITED)}")
    assert said(machine, lines, "listening on")[:-1] == [
        log.NO_COPY, "ended with status KILL", log.WAITED]
    assert package_state(machine) == "installed ok 1.1"

    stage(machine, "1.2")
    asked = machine.misbehave(*fact(1, DIGEST, "1.2"), "hang")
    lines = request_apply(machine)
    assert asked.wait(60)
    machine.run(VICTIMS["both"])
    machine.wait_for_log(log.WAITED, after=lines)
    machine.behave()
    machine.wait_for_log("listening on", after=lines)
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


ALTERED = "/srv/altered.deb"  # a package 1.1 that nobody has signed
UNPROVED = ("swap failed; the previous version was left in place (apt-get exited 1: the package is "
            "not proved, so nothing is installed: {})")


def test_a_package_that_changes_after_the_check_is_not_installed(confined):
    machine = confined
    machine.push(package("1.1", "--preinst", "touch /run/altered"), ALTERED)
    altered = machine.run(["cat", ALTERED], binary=True)
    hold_apt_get(machine, f"cmp -n {len(altered)} {ALTERED} {STAGED}")
    server = begin_pass_by_hand(machine, release("1.1", files=[README]))
    stage(machine, "1.1", fresh=False, files=[README])
    lines = request_apply(machine)
    machine.run(f"until find /proc/{main_pid(machine)}/root/tmp/held; do sleep 0.05; done")
    overwrite_package(server, (ROOT / "README.md").read_bytes(), altered)
    assert refusal(machine, lines) == UNPROVED.format(
        "witness 1 disagrees for 1.1/client-linux-amd64")
    assert package_state(machine) == "installed ok 1.0"
    assert not machine.exists("/run/altered")

    machine.run(unstub("apt-get"))
    stage(machine, "1.1", files=[README])
    machine.misbehave(BLOBS, None, "not listening")
    assert refusal(machine, request_apply(machine)).startswith(
        UNPROVED.partition("{")[0] + "witness 3 unreachable: download failed, ")
    machine.behave()
    assert said(machine, request_apply(machine), "listening on")[:-1] == [
        log.NO_COPY, log.UNJUDGED, *log.ENDED]

    stage(machine, "1.2", "--behaviour", "die-after 0")
    machine.run(["cp", ALTERED, COPY])
    lines = client_requests_apply(machine, start_client(machine, "alice"))
    assert "[UpdateSvc] rollback failed: apt-get exited 1: the package is not proved, so nothing " \
        "is installed: it is not the package that was accepted last" in said(
            machine, lines, log.NOT_STAYED)
    assert not machine.exists("/run/altered")
    assert machine.run("ls /var/lib/vantrell-harbor") == "rescue\nupdate\n"
