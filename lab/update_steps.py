"""The steps of an update: stage it, request its install, read the service's log lines."""

import signal
import time

from lab.client_log import only_client, running
from lab.installed_client import install_client
from lab.log_lines import HELD, REFUSED, RELEASED, UP_TO_DATE
from lab.releases import publish_by_hand, release
from lab.service_view import (CLIENT, CONFIG, PASS_LIMIT, WINDOW, WINDOW_LOG, WINDOW_TIMER, restart,
                              set_timer, set_zone)

# Windows; at noon NIGHT is that which began on the day before.
SHUT, NIGHT, DAY = ("02:00", "05:00"), ("20:00", "19:00"), ("10:00", "15:00")


def install_as_service(machine, deb):
    """Installs a package file of the host with the mark that an install of the service has."""
    machine.push(deb, "/var/tmp/marked.deb")
    machine.run("apt-get install -y /var/tmp/marked.deb", env={"VANTRELL_UPDATE_APPLY": "1"})


def shut_window(machine):
    """Shuts the maintenance window at any time of day; returns its text as WINDOW gives it."""
    far = (time.gmtime().tm_hour + 12) % 24
    start, end = f"{far:02}:00", f"{far:02}:30"
    set_window(machine, (start, end))
    return f"{start}-{end} local"


def make_noon(machine, window):
    """Sets a time zone in which it is noon, and the window."""
    set_zone(machine, time.gmtime().tm_hour - 12)
    set_window(machine, window)


def settle_at_noon(machine, window=SHUT):
    """As make_noon(), and the service has run its own check: the next one is hours away."""
    make_noon(machine, window)
    machine.wait_for_log(UP_TO_DATE)
    machine.forget_requests()


def set_window(machine, window):
    """Sets start and end of the window. NIGHT and DAY are open at noon, SHUT is not."""
    machine.write(CONFIG, "WindowStart={}\nWindowEnd={}\n".format(*window))


def end_session_after_boot(machine, window):
    """Installs client 1.0 on a durable machine that is switched off and on in a window.

    1.1 is offered. The service finds it while a user's client holds a session, which then ends.
    """
    install_client(machine)
    make_noon(machine, window)
    set_timer(machine, 1, WINDOW_TIMER)
    machine.publish(release("1.1"))
    machine.run("sync")
    machine.cut_power()
    client = start_working_client(machine, "alice")
    machine.wait_for_log("holding: a session is live")
    release_session(machine, client)


def run_in_window(machine):
    """Runs the unit of the window once; returns all lines that it has written so far."""
    machine.run(["systemctl", "start", WINDOW])
    return machine.run(WINDOW_LOG).splitlines()


def stage(machine, version, *options, fresh=True, **kind):
    """Publishes and offers release(...); it is staged when this returns.

    The service is restarted first: its own first pass then comes 60 seconds later and does not
    overlap this one. `fresh=False` is for a process that must keep its state.
    """
    machine.publish(release(version, *options, **kind))
    if fresh:
        restart(machine)
    _check_and_stage(machine, version)


def stage_by_hand(machine, files):
    """As stage(), for a release 1.1 that publish-release would refuse to make."""
    restart(machine)
    publish_by_hand(machine, files)
    _check_and_stage(machine, "1.1")


def _check_and_stage(machine, version):
    lines = len(machine.log())
    assert machine.send("CHECK") == "OK checking"
    machine.wait_for_log(f"{version} staged and verified", PASS_LIMIT, lines)


def accept(machine, version):
    """Has a release staged and installed while no client runs: it becomes the rollback copy."""
    stage(machine, version)
    machine.wait_for_log("listening on", after=request_apply(machine))


def start_client(machine, user, *arguments, **login):
    """Logs a user in and starts a client in the session; returns the client once it runs."""
    return running(machine, machine.login(user, **login).start([CLIENT, *arguments]))


def start_working_client(machine, user):
    """As start_client(); the client holds a session."""
    client = start_client(machine, user)
    hold_session(machine, client)
    return client


def hold_session(machine, client, count=1):
    """Has a client tell the service that it is in use; so many clients then are."""
    lines = len(machine.log())
    client.send_signal(signal.SIGUSR2)
    machine.wait_for_log(HELD.format(count), after=lines)


def release_session(machine, client):
    """Has a client give back its holds; no session is live then."""
    client.send_signal(signal.SIGHUP)
    machine.wait_for_log(RELEASED.format(0))


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


def refusal(machine, after):
    """Why an install is refused, by the first such line after so many lines of the log."""
    return machine.wait_for_log(REFUSED, after=after).removeprefix(REFUSED)


def client_requests_apply(machine, client):
    """Has a client send APPLY and exit; returns the number of log lines before."""
    lines = len(machine.log())
    running(machine, client).send_signal(signal.SIGUSR1)
    return lines


def relaunched_client_requests_apply(machine):
    """Has the only client send APPLY and exit; returns the number of log lines before."""
    lines = len(machine.log())
    machine.run(["kill", "-USR1", only_client(machine)])
    return lines


def disable_window(machine):
    """Has the service install by itself after its next pass; returns the number of log lines."""
    lines = len(machine.log())
    machine.write(CONFIG, "WindowEnabled=0\n")
    return lines
