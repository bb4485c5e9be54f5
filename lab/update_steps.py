"""The steps of an update: stage it, request its install, read the service's log lines."""

import signal
import time

from lab.client_log import running
from lab.releases import release
from lab.service_view import CONFIG, PASS_LIMIT, restart


def shut_window(machine):
    """Shuts the maintenance window at any time of day; returns its text as WINDOW gives it."""
    far = (time.gmtime().tm_hour + 12) % 24
    machine.write(CONFIG, f"WindowStart={far:02}:00\nWindowEnd={far:02}:30\n")
    return f"{far:02}:00-{far:02}:30 local"


def stage(machine, version, *options, fresh=True, **kind):
    """Publishes and offers release(...); it is staged when this returns.

    The service is restarted first: its own first pass then comes 60 seconds later and does not
    overlap this one. `fresh=False` is for a process that must keep its state.
    """
    machine.publish(release(version, *options, **kind))
    if fresh:
        restart(machine)
    lines = len(machine.log())
    assert machine.send("CHECK") == "OK checking"
    machine.wait_for_log(f"{version} staged and verified", PASS_LIMIT, lines)


def said(machine, after, last, timeout=300):
    """The service's log after `after` lines, up to the first line with `last` in it."""
    machine.wait_for_log(last, timeout, after)
    lines = machine.log()[after:]
    lines = lines[:next(i for i, line in enumerate(lines) if last in line) + 1]
    # The background thread logs these a minute after the start, between any two other lines.
    return [line for line in lines
            if line != "[UpdateSvc] up to date" and not line.startswith("[UpdateSvc] holding: ")]


def request_apply(machine, session=None):
    """Sends APPLY, as root unless a session is given; returns the number of log lines before."""
    lines = len(machine.log())
    assert machine.send("APPLY", session=session) == "OK applying"
    return lines


def client_requests_apply(machine, client):
    """Has a client send APPLY and exit; returns the number of log lines before."""
    lines = len(machine.log())
    running(machine, client).send_signal(signal.SIGUSR1)
    return lines
