"""Gives every test a machine with client 1.0 and the service installed from a package."""

import pathlib
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT))

from lab import sanitizers  # noqa: E402
from lab.client_log import CLIENT_LOG  # noqa: E402
from lab.machine import SERVICE, Machine, missing_requirements  # noqa: E402
from lab.releases import package  # noqa: E402
from lab.update_steps import shut_window  # noqa: E402

NO_COPY = "[UpdateSvc] no rollback copy could be taken"
RELAUNCHED = "[UpdateSvc] applied 1.1 and relaunched the client"
UNJUDGED = "[UpdateSvc] applied 1.1; no console session to relaunch into"
ENDED = ["[UpdateSvc] stopping for the new build", "ended with status 75"]  # see quiet_machine


def pytest_collection_modifyitems(items):
    reason = missing_requirements()
    for item in items if reason else []:
        item.add_marker(pytest.mark.skip(reason=reason))


@pytest.fixture
def bare_machine():
    """A booted machine without the client."""
    with Machine() as machine:
        sanitizers.prepare(machine)
        yield machine
        reports = sanitizers.reports(machine)
        assert not reports, "\n".join(machine.log())


@pytest.fixture
def machine(bare_machine):
    bare_machine.install(package("1.0"))
    bare_machine.wait_for_log("listening on")  # the package does not wait for that
    bare_machine.write(CLIENT_LOG, "", 0o666)
    return bare_machine


@pytest.fixture
def quiet_machine(machine):
    """The window is shut at any time of day, and the log has the service's exit status."""
    shut_window(machine)
    machine.write(f"/etc/systemd/system/{SERVICE}.d/status.conf",
                  "[Service]\nExecStopPost=echo ended with status $EXIT_STATUS\n")
    machine.run("systemctl daemon-reload")
    return machine


@pytest.fixture
def quiet(quiet_machine):
    return quiet_machine


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """Adds the service's journal to the report of a failed test."""
    outcome = yield
    report = outcome.get_result()
    machine = item.funcargs.get("bare_machine") if hasattr(item, "funcargs") else None
    if report.when == "call" and report.failed and machine:
        report.sections.append(("journal of the service", machine.journal()))
