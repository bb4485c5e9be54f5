"""What the stand-in clients of a machine write into their log."""

import json
import re
from typing import NamedTuple

from lab.service_view import CLIENT

CLIENT_LOG = "/var/log/vantrell-harbor-client.log"
# Fails when a process ends in the meantime.
_FIND_CLIENTS = f"find /proc/[0-9]*/exe -lname '{CLIENT}*' 2>/dev/null"


class ClientStart(NamedTuple):
    """One start of a client, as it wrote it down."""

    pid: int
    uid: int
    arguments: list
    environment: list  # NAME=value


def client_starts(machine, version):
    """A ClientStart for each client of a version, in the order of the starts."""
    records = re.findall(rf"^\[{re.escape(version)} pid (\d+) uid (\d+)\] start argv (.*) "
                         "environment (.*)$", machine.read(CLIENT_LOG), re.MULTILINE)
    return [ClientStart(int(pid), int(uid), json.loads(arguments)[1:], json.loads(environment))
            for pid, uid, arguments, environment in records]


def started(machine, version):
    """The arguments of each client of a version, in the order of the starts."""
    return [start.arguments for start in client_starts(machine, version)]


def told_to_end(machine, version):
    """The sorted pids of the clients of a version that got SIGTERM, one entry for each signal."""
    found = re.findall(rf"^\[{re.escape(version)} pid (\d+) uid \d+\] SIGTERM",
                       machine.read(CLIENT_LOG), re.MULTILINE)
    return sorted(map(int, found))


def wait_for_client(machine, pattern):
    """Waits for a line of the clients' log that matches a regular expression of grep."""
    wait = 'until grep -q -- "$0" "$1"; do sleep 0.05; done'
    machine.run(["sh", "-c", wait, pattern, CLIENT_LOG], timeout=120)


def running(machine, client):
    """Returns a client that was started, once it handles signals."""
    wait_for_client(machine, rf"^\[[^ ]* pid {client.pid_inside} .* start argv")
    return client


def running_clients(machine):
    """The pids of all clients that run, those of a replaced executable included."""
    return [path.split("/")[2] for path in machine.run(_FIND_CLIENTS, check=False).splitlines()]


def wait_for_clients(machine, count):
    """Waits until so many clients, or more, handle signals; returns the pids of those that run."""
    machine.run(f"until [ $({_FIND_CLIENTS} | wc -l) -ge {count} ]; do sleep 0.05; done")
    pids = running_clients(machine)
    for pid in pids:
        wait_for_client(machine, rf"^\[[^ ]* pid {pid} .* start argv")
    return pids


def only_client(machine):
    """The pid of the one client that runs, once it handles signals."""
    [pid] = wait_for_clients(machine, 1)
    return pid
