"""What the stand-in clients of a machine have written down about themselves."""

import json
import re

CLIENT_LOG = "/var/log/vantrell-harbor-client.log"


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
