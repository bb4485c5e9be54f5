"""Fixtures for pytest: machines with client 1.0 and the service installed from a package."""

import contextlib
import itertools
import subprocess

import pytest

from lab import installed_client, kill_rounds, sanitizers
from lab.machine import Machine, missing_requirements
from lab.service_view import log_exit_status
from lab.update_steps import shut_window

MACHINES = ["machine", "bare_machine", "durable_machine"]  # the fixtures below


def pytest_configure(config):
    for marker in ("long: takes minutes, so it begins early",
                   "faults: not in the plain run, only in ./test.sh faults",
                   "race: not in the plain run, only in ./test.sh race"):
        config.addinivalue_line("markers", marker)


@pytest.hookimpl(trylast=True)
def pytest_collection_modifyitems(items):
    reason = missing_requirements()
    for item in items if reason else []:
        item.add_marker(pytest.mark.skip(reason=reason))
    # Each worker gets two tests at the beginning. A long one is the first of the two.
    long = [item for item in items if item.get_closest_marker("long")]
    short = [item for item in items if item not in long]
    pairs = itertools.zip_longest(long, short[:len(long)])
    items[:] = [item for pair in pairs for item in pair if item] + short[len(long):]


@pytest.fixture
def bare_machine():
    """A booted machine without the client."""
    with _observed(Machine()) as machine:
        sanitizers.prepare(machine)
        yield machine


@pytest.fixture
def machine():
    """A booted machine with client 1.0; its service serves."""
    with _observed(Machine(installed_client.changes())) as machine:
        machine.wait_for_log("listening on")
        yield machine


@contextlib.contextmanager
def _observed(machine):
    with machine:
        yield machine
        reports = sanitizers.reports(machine)
        assert not reports, "\n".join(machine.log())


@pytest.fixture
def quiet(machine):
    """The window is shut at any time of day, and the log has the service's exit status."""
    shut_window(machine)
    log_exit_status(machine)
    return machine


@pytest.fixture
def power_cut():
    """Skips the test where the power of a machine cannot be cut."""
    if reason := kill_rounds.missing():
        pytest.skip(reason)


@pytest.fixture
def durable_machine(power_cut):
    """A booted machine without the client whose power can be cut."""
    with Machine(durable=True) as machine:
        yield machine


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """Adds the service's journal to the report of a failed test."""
    outcome = yield
    report = outcome.get_result()
    arguments = getattr(item, "funcargs", {})
    machine = next((arguments[name] for name in MACHINES if name in arguments), None)
    if report.when != "call" or not report.failed or not machine:
        return
    try:
        journal = machine.journal()
    except (OSError, subprocess.SubprocessError) as error:  # its power is off
        journal = str(error)
    report.sections.append(("journal of the service", journal))
