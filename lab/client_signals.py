"""What the service did to the stand-in clients, by their own log."""

import re

from lab.client_log import CLIENT_LOG


def told_to_end(machine, version):
    """The sorted pids of the clients of a version that got SIGTERM, one entry for each signal."""
    found = re.findall(rf"^\[{re.escape(version)} pid (\d+) uid \d+\] SIGTERM",
                       machine.read(CLIENT_LOG), re.MULTILINE)
    return sorted(map(int, found))
