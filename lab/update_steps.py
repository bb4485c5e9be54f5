"""The steps of an update: stage it, ask for its install, read what the service said of it."""

import signal
import time

from lab.client_log import running
from lab.releases import release
from lab.service_view import CONFIG


def shut_window(machine):
    """Shuts the maintenance window at any time of day; returns its text as WINDOW gives it."""
    far = (time.gmtime().tm_hour + 12) % 24
    machine.write(CONFIG, f"WindowStart={far:02}:00\nWindowEnd={far:02}:30\n")
    return f"{far:02}:00-{far:02}:30 local"


def stage(machine, version, *options, **kind):
    """Publishes and offers release(...); it is staged when this returns."""
    machine.publish(release(version, *options, **kind))
    lines = len(machine.log())
    assert machine.send("CHECK") == "OK checking"
    machine.wait_for_log(f"{version} staged and verified", 120, lines)


def said(machine, after, last, timeout=120):
    """What the service wrote after `after` lines, up to the line with `last` in it."""
    machine.wait_for_log(last, timeout, after)
    lines = machine.log()[after:]
    lines = lines[:next(i for i, line in enumerate(lines) if last in line) + 1]
    # What the background thread tries a minute after the start comes wherever it comes.
    return [line for line in lines
            if line != "[UpdateSvc] up to date" and not line.startswith("[UpdateSvc] holding: ")]


def request_apply(machine, session=None):
    """Sends APPLY, as root unless a session is given; returns the number of log lines before."""
    lines = len(machine.log())
    assert machine.send("APPLY", session=session) == "OK applying"
    return lines


def client_requests_apply(machine, client):
    """The same from a client, which exits."""
    lines = len(machine.log())
    running(machine, client).send_signal(signal.SIGUSR1)
    return lines
