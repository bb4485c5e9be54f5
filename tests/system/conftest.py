"""Every test gets a machine of its own, with client 1.0 and the service installed from its package.

VANTRELL_FLAVOUR says which build of the service serves: release, asan or tsan.
"""

import fcntl
import hashlib
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import time

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT))

from lab.machine import SERVICE, SOCKET, Machine, missing_requirements  # noqa: E402

FLAVOUR = os.environ.get("VANTRELL_FLAVOUR", "release")
BUILT = ROOT / "build/lab" / FLAVOUR
KEYS = ROOT / "build/lab/keys"
FIRST_STAMP, NEXT_STAMP = "2026-10-11-2304", "2026-11-21-0900"
STATE = "/var/lib/vantrell-harbor/update"
CLIENT = "/usr/bin/vantrell-harbor"
CLIENT_LOG = "/var/log/vantrell-harbor-client.log"
NO_COPY = "[UpdateSvc] no rollback copy could be taken"
RELAUNCHED = "[UpdateSvc] applied 1.1 and relaunched the client"
UNJUDGED = "[UpdateSvc] applied 1.1; no console session to relaunch into"
ENDED = ["[UpdateSvc] stopping for the new build", "ended with status 75"]  # see quiet_machine
SANITIZER_WORDS = ("Sanitizer", "runtime error:")


def cached(make, *key):
    """What `make(folder)` puts into a folder that all workers share, made once for each key."""
    digest = hashlib.sha256(repr(key).encode()).hexdigest()[:16]
    BUILT.joinpath("made").mkdir(exist_ok=True)
    folder = BUILT / "made" / digest
    with open(f"{folder}.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not folder.exists():
            making = folder.with_suffix(".making")
            subprocess.run(["rm", "-rf", making], check=True)
            making.mkdir()
            make(making)
            making.rename(folder)
    return folder


def package(version, *options, stamp=FIRST_STAMP):
    """Path of a client package; the options are lab/client/make-package's."""
    service = BUILT / ("service" if stamp == FIRST_STAMP else "next-service")
    sources = [service, ROOT / "packaging", ROOT / "lab/client"]
    newest = max(path.stat().st_mtime_ns for root in sources for path in root.rglob("*"))

    def make(folder):
        subprocess.run([ROOT / "lab/client/make-package", "--version", version, "--client",
                        BUILT / "stand-in-client", "--service-tree", service, "--output", folder,
                        *options], check=True, stdout=subprocess.DEVNULL)

    return next(cached(make, "package", version, stamp, options, newest).glob("*.deb"))


def release(version, *options, files=(), channel="prod", key="release-1", deb=None, **kind):
    """Folder with a published release of package(version, *options) and of other `files`."""
    deb = deb or package(version, *options, **kind)

    def make(folder):
        subprocess.run([ROOT / "publisher/publish-release", "--version", version, "--channel",
                        channel, "--key", KEYS / f"{key}.pem", "--output", folder / "tree", deb,
                        *files], check=True, stdout=subprocess.DEVNULL)

    return cached(make, "release", str(deb), version, channel, key, [str(f) for f in files]) / "tree"


def dial(machine):
    """A connection to the control socket from the host, whose pids mean nothing in the machine."""
    connection = socket.socket(socket.AF_UNIX)
    connection.settimeout(60)
    connection.connect(f"/proc/{machine.leader}/root{SOCKET}")
    return connection


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


def client_starts(machine, version):
    """Pid, owner, arguments and environment of each client of a version, in the order of starts."""
    records = re.findall(rf"^\[{re.escape(version)} pid (\d+) uid (\d+)\] start argv (.*) "
                         "environment (.*)$", machine.read(CLIENT_LOG), re.MULTILINE)
    return [(int(pid), int(uid), json.loads(arguments)[1:], json.loads(environment))
            for pid, uid, arguments, environment in records]


def wait_for_client(machine, pattern):
    """Waits for a line of the clients' log that matches a regular expression of grep."""
    wait = 'until grep -q -- "$0" "$1"; do sleep 0.05; done'
    machine.run(["sh", "-c", wait, pattern, CLIENT_LOG])


def running(machine, client):
    """Returns a client that was started, once it listens to signals."""
    wait_for_client(machine, rf"^\[[^ ]* pid {client.pid_inside} .* start argv")
    return client


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
    bare_machine.write("/var/log/vantrell-harbor-client.log", "", 0o666)
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
