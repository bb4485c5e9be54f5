"""The whole road of one update, as its users see it."""

import re

import pytest
from conftest import ENDED, NO_COPY, RELAUNCHED

from lab.client_log import client_starts, running
from lab.releases import NEXT_STAMP
from lab.service_view import CLIENT, STATE, main_pid
from lab.update_steps import client_requests_apply, said, stage

ARGUMENTS = ["--room", "two words", "", 'a "quoted" one', "it's", "two\nlines", "--", "-x"]
KEPT = ["DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "XDG_RUNTIME_DIR", "XDG_SESSION_TYPE",
        "XDG_CURRENT_DESKTOP", "DBUS_SESSION_BUS_ADDRESS", "LANG", "LC_ALL"]
OTHERS = {"LANGUAGE": "de", "SECRET": "DISPLAY=:1", "MY_DISPLAY": ":2"}
SWAP = ("install -y --allow-downgrades --no-install-recommends -o DPkg::Lock::Timeout=300 "
        "-o Dpkg::Options::=--force-confdef -o Dpkg::Options::=--force-confold").split()
# First in the PATH of the service: notes arguments and environment, and becomes the real tool.
RECORDER = r"""#!/bin/sh
{ cat /proc/$$/cmdline; printf '\1'; cat /proc/$$/environ; printf '\2'; } >>"/run/calls-${0##*/}"
PATH=${PATH#*:}
exec "${0##*/}" "$@"
"""


def calls(machine, tool):
    recorded = [call.split("\1") for call in machine.read(f"/run/calls-{tool}").split("\2")[:-1]]
    return [(line.split("\0")[2:-1], environment.split("\0")[:-1])
            for line, environment in recorded]


def test_an_offer_is_proved_fetched_and_ready(machine):
    stage(machine, "1.1")
    assert machine.send("STATUS") == "READY 1.1 staged 1.1"
    assert "[Update] 1.1/client-linux-amd64 signed by a release key and agreed by 3/3 witnesses" \
        in machine.log()
    staged = machine.run("cd /var/lib/vantrell-harbor/update/client-staging/1.1 && sha256sum *")
    published = machine.run("cd /srv/lab/downloads.vantrell.example/packages/1.1 && sha256sum *")
    assert staged == published != ""


@pytest.mark.slow
def test_the_client_asks_and_comes_back_as_the_new_version(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1", stamp=NEXT_STAMP)
    client = running(machine, machine.login("alice").start([CLIENT, *ARGUMENTS], env={
        "LC_ALL": "C.UTF-8", "WAYLAND_DISPLAY": 'with "quotes" and\na line feed', **OTHERS}))
    old = machine.run(["cat", f"/proc/{client.pid_inside}/environ"]).split("\0")
    kept = [entry for entry in old if entry.split("=")[0] in KEPT]
    own = machine.run(["cat", f"/proc/{main_pid(machine)}/environ"]).split("\0")[:-1]
    for tool in ("apt-get", "systemd-run", "systemctl", "cp"):
        machine.write(f"/usr/local/sbin/{tool}", RECORDER, 0o755)
    story = said(machine, client_requests_apply(machine, client), f"updated {NEXT_STAMP} listening")
    assert story[:-1] == [NO_COPY, RELAUNCHED, *ENDED]
    assert machine.version_of("vantrell-harbor") == "1.1"

    deb = f"{STATE}/client-staging/1.1/vantrell-harbor_1.1_amd64.deb"
    assert calls(machine, "apt-get") == [([*SWAP, deb], own + [
        "DEBIAN_FRONTEND=noninteractive", "VANTRELL_UPDATE_APPLY=1", "NEEDRESTART_SUSPEND=1"])]
    [(start, environment)] = calls(machine, "systemd-run")
    unit = re.fullmatch(r"--unit=(vantrell-harbor-relaunch-\d{10})", start[2])[1]
    manager = ["--user", "--machine=alice@.host"]
    assert (start, environment) == (
        [*manager, f"--unit={unit}", "--collect", "--quiet",
         *("--setenv=" + entry for entry in kept), "--", CLIENT, *ARGUMENTS], own)
    looks = calls(machine, "systemctl")
    assert looks == [([*manager, "show", "-p", "ActiveState", "--value", unit], own)] * len(looks)
    assert 10 <= len(looks) <= 80  # one every quarter of a second, if each took no time
    assert calls(machine, "cp") == [(["--", deb, f"{STATE}/client-rollback/previous.deb"], own)]

    [(_, uid, arguments, environment)] = client_starts(machine, "1.1")
    assert (uid, arguments, len(kept)) == (1001, ARGUMENTS, len(KEPT))
    assert set(kept) <= set(environment)
    assert not {*OTHERS, "XDG_SESSION_ID", "XDG_SEAT"} & {e.split("=")[0] for e in environment}
