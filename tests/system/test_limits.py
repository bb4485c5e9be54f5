"""What the units keep a flood of checks, a stop and other programs from doing to an install."""

import subprocess
import threading

import pytest
from conftest import ENDED, RELAUNCHED, SERVICE

from lab.client_log import running
from lab.outside_world import DOWNLOADS, UPDATES
from lab.releases import FLAVOUR, release
from lab.service_view import CLIENT, ask, main_pid, wait_for_passes
from lab.update_steps import client_requests_apply, request_apply, said, stage

DEFAULT_LIMIT = 1024  # descriptors that systemd gives a service
HOLD = "until [ -e /run/go ]; do sleep 0.1; done"
# Stops after the update service does.
LAST_LOOK = f"""[Unit]
Before={SERVICE}
[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart=mkfifo /run/end
ExecStop=sh -c '{{ dpkg-query -W vantrell-harbor; dpkg --audit; }} >/run/end; sleep infinity'
"""
# Like apt-listbugs and apt-listchanges, which end an install when nobody answers their question.
ASKING_HOOK = """DPkg::Pre-Install-Pkgs {
  "[ $APT_LISTBUGS_FRONTEND$APT_LISTCHANGES_FRONTEND = nonenone ]"; };"""
NAME = "vantrell-harbor-relaunch-"
TAKE_NAMES = f"""start=$(date +%s); for second in {{0..99}}; do systemd-run --user --quiet \\
  --remain-after-exit --unit={NAME}$((start + second)) true & done; wait"""


@pytest.mark.slow
def test_a_flood_of_checks_does_not_make_the_new_client_look_dead(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1")
    client = running(machine, machine.login("alice").start([CLIENT]))
    machine.misbehave(UPDATES, None, "mute")
    ended = threading.Event()

    def flood():
        while not ended.is_set():
            try:
                ask(machine, "CHECK")
            except OSError:
                pass  # too many connections

    senders = [threading.Thread(target=flood) for _ in range(8)]
    for sender in senders:
        sender.start()
    try:
        machine.run(f"until [ $(ls /proc/{main_pid(machine)}/fd | wc -l) -ge {DEFAULT_LIMIT} ]; do "
                    "sleep 0.2; done", timeout=180)
        machine.wait_for_log(RELAUNCHED, 120, client_requests_apply(machine, client))
    finally:
        ended.set()
        for sender in senders:
            sender.join()


@pytest.mark.skipif(FLAVOUR != "release", reason="a sanitizer keeps freed memory")
def test_large_answers_leave_no_memory_in_use(machine):
    machine.offer('{"version":"1.1","a":[0%s]}' % (1_000_000 * ",0"))
    for _ in range(12):
        ask(machine, "CHECK")
    wait_for_passes(machine)
    assert ask(machine, "STATUS") == "IDLE - unreadable manifest: manifest has no files"
    status = machine.run(["cat", f"/proc/{main_pid(machine)}/status"]).split()
    assert int(status[status.index("VmRSS:") + 1]) < 20 * 1024


@pytest.mark.slow
def test_a_removal_does_not_wait_for_a_download(quiet_machine):
    machine = quiet_machine
    machine.publish(release("1.1"))
    came = machine.misbehave(DOWNLOADS, "/packages/1.1/vantrell-harbor_1.1_amd64.deb", "hang")
    assert came.wait(120)  # the service begins its first check by itself
    lines = len(machine.log())
    machine.run("apt-get remove -y vantrell-harbor", timeout=30)
    assert machine.log()[lines:] == [
        "ending the service in the middle of a check; the next start begins with a new one",
        "ended with status KILL"]
    assert machine.run("systemctl --failed --no-legend") == ""


def test_a_poweroff_waits_for_an_install_and_hooks_do_not_end_it(quiet_machine):
    machine = quiet_machine
    machine.write("/etc/systemd/system/last-look.service", LAST_LOOK)
    machine.write("/etc/apt/apt.conf.d/hook", ASKING_HOOK)
    machine.run("systemctl start last-look")
    stage(machine, "1.1", "--preinst", f"touch /run/begun; {HOLD}")
    with machine.popen(["cat", "/run/end"], stdout=subprocess.PIPE, text=True) as last_look:
        lines = request_apply(machine)
        machine.run("until [ -e /run/begun ]; do sleep 0.05; done; systemctl poweroff")
        machine.wait_for_log("waiting for an install to end before the service stops", after=lines)
        machine.run("touch /run/go")
        assert last_look.communicate(timeout=60)[0] == "vantrell-harbor\t1.1\n"


@pytest.mark.slow
def test_only_a_running_unit_of_the_same_second_keeps_a_client_from_its_start(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1", "--behaviour", "die-after 0", "--behaviour", "exit-code 3")
    alice = machine.login("alice")
    client = running(machine, alice.start([CLIENT]))
    machine.wait_for_log("apply refused: the updated client did not stay running",
                         after=client_requests_apply(machine, client))
    # A unit that has failed would keep its name too.
    assert alice.run(f"systemctl --user list-units --all --no-legend '{NAME}*'") == ""

    machine.write("/usr/share/vantrell-harbor/behaviour", "stay")
    stage(machine, "1.2")
    client = running(machine, alice.start([CLIENT]))
    alice.run(TAKE_NAMES)
    _, why, *story = said(machine, client_requests_apply(machine, client), "ended with status")
    assert why.startswith("[UpdateSvc] could not start the client in alice's session: Failed to "
                          f"start transient service unit: Unit {NAME}")
    assert story == ["[UpdateSvc] applied 1.2; no console session to relaunch into", *ENDED]
