"""What must be so on a machine after any fault, however it came about."""

import hashlib
import pathlib
import re
import time
from typing import NamedTuple

from lab import log_lines as log
from lab.client_log import client_starts, running_clients
from lab.footprint import package_state
from lab.outside_world import DOWNLOADS
from lab.service_view import (CONFIG, IDLE_THREADS, PASS_LIMIT, RECORD, REPAIR, STATE, ask,
                              service_group)

CLIENT_LIMIT = 10  # seconds until a client that was started has written that down
# Below the state directory; the machine id is that of a script beside the service.
_OWN_FILES = re.compile(r"""client-staging(/[0-9.]+(/.+)?)?|client-rollback(/previous\.deb)?
                        |install-id|machine-id|installed\.sha256""", re.VERBOSE)
# A rewrite of the settings that fails leaves its temporary file, and the next one replaces it.
_SETTINGS = {"update.conf", "update.conf.tmp"}


class Sound(NamedTuple):
    """What no fault may change."""

    foreign: list  # the lines of the settings file that the service does not own
    install_id: str
    descriptors: list  # of the idle service: what each one is, sorted


def host_pid(machine):
    """The pid of the idle service as the host sees it; 0 when it does not run."""
    try:
        pids = (service_group(machine) / "cgroup.procs").read_text().split()
    except OSError:
        return 0  # between two runs
    return int(pids[0]) if len(pids) == 1 else 0


def _threads(machine):
    try:
        return len((service_group(machine) / "cgroup.threads").read_text().split())
    except OSError:
        return 0


def _ask_status(machine):
    try:
        return ask(machine, "STATUS")
    except OSError:
        return ""  # the service is ending


def settle(machine, ended=lambda status, pid: True):
    """Waits until the service is idle and answers; returns its status.

    `ended` says, by a status and a pid on the host, whether what was begun has come to its end.
    """
    deadline = time.monotonic() + PASS_LIMIT
    while True:
        pid = host_pid(machine)
        # It has fewer threads while it starts, and when it has missed a stop.
        if pid and _threads(machine) <= IDLE_THREADS:
            status = _ask_status(machine)
            while status and _threads(machine) > IDLE_THREADS and time.monotonic() < deadline:
                time.sleep(0.005)  # the thread of the connection
            if status and pid == host_pid(machine) and ended(status, pid):
                return status
        assert time.monotonic() < deadline, "the service does not become idle"
        time.sleep(0.02)


def observe(machine):
    """What must stay as it is, of a service that is idle and has run a check."""
    return Sound(_foreign_lines(machine), _install_id(machine), _descriptors(machine))


def _foreign_lines(machine):
    try:
        text = machine.on_host(CONFIG).read_text()
    except FileNotFoundError:
        return []
    return [line for line in text.splitlines(keepends=True)
            if not re.fullmatch(r"Channel=(dev|beta|prod)\n", line)]


def _install_id(machine):
    return machine.on_host(f"{STATE}/install-id").read_text()


def _descriptors(machine):
    folder = pathlib.Path(f"/proc/{host_pid(machine)}/fd")
    return sorted(re.sub(r":\[\d+\]", "", str(entry.readlink())) for entry in folder.iterdir())


def _digests(folder):
    return sorted(hashlib.sha256(path.read_bytes()).hexdigest()
                  for path in folder.rglob("*") if path.is_file())


def violations(machine, before, packages=False, ended=False):
    """A sentence on each thing that is not as it must be once the service is idle again.

    `packages` looks at dpkg too, which takes time. The repair may run before. A service that has
    `ended` unexpectedly may leave a part of a release, which the next pass removes.
    """
    status, found = settle(machine), []
    after = observe(machine)
    for name, old, new in zip(Sound._fields, before, after):
        if old != new:
            found.append(f"{name}: {old} became {new}")
    state = machine.on_host(STATE)
    names = [str(path.relative_to(state)) for path in state.rglob("*")]
    found += [f"{name} does not belong there" for name in names if not _OWN_FILES.fullmatch(name)]
    config = machine.on_host(CONFIG)
    found += [f"{path} does not belong there" for path in config.parent.glob("*")
              if path.name not in _SETTINGS]
    served = machine.on_host(machine.document(DOWNLOADS, "/packages"))
    word, version, *_ = status.split(" ", 2)
    ready = {version} if word == "READY" else set()
    present = {path.name for path in (state / "client-staging").glob("*")}
    for version in ready | (set() if ended else present):
        if _digests(state / "client-staging" / version) != _digests(served / version):
            found.append(f"{version} {'is ready' if version in ready else 'was left'}, and its "
                         "files are not those of the release")
    copies = _digests(state / "client-rollback")
    if not set(copies) <= set(_digests(served)):
        found.append("the rollback copy is not the package of a release")
    if packages:
        found += _package_violations(machine)
    return found


def _package_violations(machine):
    if re.fullmatch(r"installed ok \S+", package_state(machine)):
        return []
    machine.run(["systemctl", "start", REPAIR])
    state = package_state(machine)
    return [] if re.fullmatch(r"installed ok \S+", state) else [f"the package is {state}"]


class Apply(NamedTuple):
    """An apply that a client of alice will ask for. Each client has its user as its argument."""

    old: str  # the version that is installed
    new: str
    others: set  # the clients that run, as _clients() gives them
    lines: int  # of the log


def begin_apply(machine):
    """What client_violations() needs, of a machine with a staged release."""
    old, (_, new, *_) = machine.version_of("vantrell-harbor"), settle(machine).split()
    return Apply(old, new, _clients(machine, old), len(machine.log()))


def _clients(machine, version):
    """The user and the version of each client of a version that runs, and has its display."""
    pids = running_clients(machine)
    return {(" ".join(start.arguments), version) for start in client_starts(machine, version)
            if str(start.pid) in pids and "DISPLAY=:0" in start.environment}


def client_violations(machine, apply):
    """As violations(), of the installed version and the clients, by the verdict of an apply."""
    said = "\n".join(machine.log()[apply.lines:])
    version, clients, installed = apply.old, apply.others, machine.version_of("vantrell-harbor")
    if "[UpdateSvc] rollback failed: " in said:
        clients, installed = set(), version  # any package: it is as apt-get has left it
    elif log.RESTORED in said:
        clients = {("alice", version)}
    elif f"[UpdateSvc] applied {apply.new}" in said:
        version, clients = apply.new, {("alice", apply.new)}
    elif log.REFUSED not in said:
        return ["verdict: none"]
    # The last start is that of a rollback. The journal removes blanks at the end of a line.
    if log.NO_START.format("alice").rstrip() in said.rpartition(" rolling back ")[2]:
        clients = set()
    deadline = time.monotonic() + CLIENT_LIMIT
    while (missing := clients - _clients(machine, version)) and time.monotonic() < deadline:
        time.sleep(0.05)
    found = [f"client: none of {user}, {version}, runs" for user, version in sorted(missing)]
    if installed != version:
        found.append(f"version: {installed} in place of {version}")
    if f"_{version}_" not in machine.read(RECORD):
        found.append(f"record: it does not name {version}")
    return found
