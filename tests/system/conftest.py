"""Every test gets a machine of its own, with client 1.0 and the service installed from its package."""

import pathlib
import signal
import sys
import time

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT))

from lab.client_log import CLIENT_LOG, running  # noqa: E402
from lab.machine import SERVICE, Machine, missing_requirements  # noqa: E402
from lab.releases import FLAVOUR, package, release  # noqa: E402

CLIENT = "/usr/bin/vantrell-harbor"
NO_COPY = "[UpdateSvc] no rollback copy could be taken"
RELAUNCHED = "[UpdateSvc] applied 1.1 and relaunched the client"
UNJUDGED = "[UpdateSvc] applied 1.1; no console session to relaunch into"
ENDED = ["[UpdateSvc] stopping for the new build", "ended with status 75"]  # see quiet_machine
SANITIZER_WORDS = ("Sanitizer", "runtime error:")


def stage(machine, version, *options, **kind):
    """Publishes and offers release(...); it is staged when this returns."""
    machine.publish(release(version, *options, **kind))
    lines = len(machine.log())
    assert machine.send("CHECK") == "OK checking"
    machine.wait_for_log(f"{version} staged and verified", 120, lines)


def said(machine, after, last, timeout=120):
    """What the service wrote behind `after` lines, up to the line with `last` in it."""
    machine.wait_for_log(last, timeout, after)
    lines = machine.log()[after:]
    lines = lines[:next(i for i, line in enumerate(lines) if last in line) + 1]
    # What the background thread tries a minute after the start comes wherever it comes.
    return [line for line in lines
            if line != "[UpdateSvc] up to date" and not line.startswith("[UpdateSvc] holding: ")]


def request_apply(machine, session=None):
    """Sends APPLY, from root's hand unless told otherwise; where the log stood before."""
    lines = len(machine.log())
    assert machine.send("APPLY", session=session) == "OK applying"
    return lines


def client_requests_apply(machine, client):
    """The same from a client, which exits."""
    lines = len(machine.log())
    running(machine, client).send_signal(signal.SIGUSR1)
    return lines


def pytest_collection_modifyitems(items):
    reason = missing_requirements()
    for item in items if reason else []:
        item.add_marker(pytest.mark.skip(reason=reason))


@pytest.fixture
def bare_machine():
    """A booted machine without the client."""
    with Machine() as machine:
        if FLAVOUR == "tsan":
            # The sanitizer cannot place its shadow memory in a randomised address space.
            machine.write(f"/etc/systemd/system/{SERVICE}.d/tsan.conf",
                          "[Service]\nExecStart=\n"
                          "ExecStart=/usr/bin/setarch -R /usr/sbin/vantrell-harbor-updated\n")
        yield machine
        reports = [line for line in machine.log() if any(w in line for w in SANITIZER_WORDS)]
        assert not reports, "\n".join(machine.log())


@pytest.fixture
def machine(bare_machine):
    bare_machine.install(package("1.0"))
    bare_machine.wait_for_log("listening on")  # the package does not wait for that
    bare_machine.write(CLIENT_LOG, "", 0o666)
    return bare_machine


@pytest.fixture
def quiet_machine(machine):
    """Its window is shut at any time of day, and its log tells the service's exit status."""
    far = (time.gmtime().tm_hour + 12) % 24
    machine.write("/etc/vantrell-harbor/update.conf",
                  f"WindowStart={far:02}:00\nWindowEnd={far:02}:30\n")
    machine.write(f"/etc/systemd/system/{SERVICE}.d/status.conf",
                  "[Service]\nExecStopPost=echo ended with status $EXIT_STATUS\n")
    machine.run("systemctl daemon-reload")
    return machine


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """A failed test shows what the service said."""
    outcome = yield
    report = outcome.get_result()
    machine = item.funcargs.get("bare_machine") if hasattr(item, "funcargs") else None
    if report.when == "call" and report.failed and machine:
        report.sections.append(("journal of the service", machine.journal()))
