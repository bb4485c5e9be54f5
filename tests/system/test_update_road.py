"""An update that a user's client asks for: the tools that are called, and the client that returns.

Everything else on the machine is real; the recorded tools do their work too.
"""

import re

import pytest

from lab.client_log import client_starts, running
from lab.log_lines import ENDED, NO_COPY, RELAUNCHED
from lab.releases import DEB, NEXT_STAMP
from lab.service_view import CLIENT, COPY, STAGING, environment_of, main_pid
from lab.stubs import Call, calls, record
from lab.update_steps import client_requests_apply, said, stage

ARGUMENTS = ["--room", "two words", "", 'a "quoted" one', "it's", "two\nlines", "--", "-x"]
KEPT = ["DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "XDG_RUNTIME_DIR", "XDG_SESSION_TYPE",
        "XDG_CURRENT_DESKTOP", "DBUS_SESSION_BUS_ADDRESS", "LANG", "LC_ALL"]
DROPPED = {"LANGUAGE": "de", "SECRET": "DISPLAY=:1", "MY_DISPLAY": ":2"}
INSTALL = ("install -y --allow-downgrades --no-install-recommends -o DPkg::Lock::Timeout=300 "
           "-o Dpkg::Options::=--force-confdef -o Dpkg::Options::=--force-confold").split()
INSTALL_ENVIRONMENT = ["DEBIAN_FRONTEND=noninteractive", "VANTRELL_UPDATE_APPLY=1",
                       "NEEDRESTART_SUSPEND=1"]


@pytest.mark.slow
def test_the_client_that_asks_returns_as_the_new_version(quiet):
    machine = quiet
    stage(machine, "1.1", stamp=NEXT_STAMP)
    client = running(machine, machine.login("alice").start([CLIENT, *ARGUMENTS], env={
        "LC_ALL": "C.UTF-8", "WAYLAND_DISPLAY": 'with "quotes" and\na line feed', **DROPPED}))
    kept = [entry for entry in environment_of(machine, client.pid_inside)
            if entry.split("=")[0] in KEPT]
    assert len(kept) == len(KEPT)
    own = environment_of(machine, main_pid(machine))
    for tool in ("apt-get", "systemd-run", "systemctl", "cp"):
        record(machine, tool)
    story = said(machine, client_requests_apply(machine, client), f"updated {NEXT_STAMP} listening")
    assert story[:-1] == [NO_COPY, RELAUNCHED, *ENDED]
    assert machine.version_of("vantrell-harbor") == "1.1"

    deb = f"{STAGING}/1.1/{DEB}"
    assert calls(machine, "apt-get") == [Call([*INSTALL, deb], own + INSTALL_ENVIRONMENT)]
    [start] = calls(machine, "systemd-run")
    unit = re.fullmatch(r"--unit=(vantrell-harbor-relaunch-\d{10})", start.arguments[2])[1]
    manager = ["--user", "--machine=alice@.host"]
    assert start == Call(
        [*manager, f"--unit={unit}", "--collect", "--quiet",
         *("--setenv=" + entry for entry in kept), "--", CLIENT, *ARGUMENTS], own)
    queries = calls(machine, "systemctl")
    query = Call([*manager, "show", "-p", "ActiveState", "--value", unit], own)
    assert queries == [query] * len(queries)
    assert 10 <= len(queries) <= 80  # one every 250 ms for 20 s, and each takes its own time
    assert calls(machine, "cp") == [Call(["--", deb, COPY], own)]

    [(_, uid, arguments, environment)] = client_starts(machine, "1.1")
    assert uid == 1001
    assert arguments == ARGUMENTS
    assert set(kept) <= set(environment)
    names = {entry.split("=")[0] for entry in environment}
    assert names.isdisjoint({*DROPPED, "XDG_SESSION_ID", "XDG_SEAT"})
