"""What the units keep a flood of checks, a stop and other programs from doing to an install."""

import subprocess

import pytest
from conftest import SERVICE

from lab.outside_world import DOWNLOADS
from lab.releases import release
from lab.update_steps import request_apply, stage

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


def test_a_poweroff_waits_for_an_install(quiet_machine):
    machine = quiet_machine
    machine.write("/etc/systemd/system/last-look.service", LAST_LOOK)
    machine.run("systemctl start last-look")
    stage(machine, "1.1", "--preinst", f"touch /run/begun; {HOLD}")
    with machine.popen(["cat", "/run/end"], stdout=subprocess.PIPE, text=True) as last_look:
        lines = request_apply(machine)
        machine.run("until [ -e /run/begun ]; do sleep 0.05; done; systemctl poweroff")
        machine.wait_for_log("waiting for an install to end before the service stops", after=lines)
        machine.run("touch /run/go")
        assert last_look.communicate(timeout=60)[0] == "vantrell-harbor\t1.1\n"
