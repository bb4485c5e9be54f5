"""The times at which the service wrote its log lines."""

import json

from lab.machine import SERVICE


def log_times(machine):
    """The last time of each log line, in seconds on the clock of time.monotonic()."""
    entries = machine.run("journalctl --sync; journalctl --quiet --output=json "
                          f"_SYSTEMD_UNIT={SERVICE}").splitlines()
    lines = [json.loads(entry) for entry in entries]
    return {str(line["MESSAGE"]): int(line["__MONOTONIC_TIMESTAMP"]) / 1e6 for line in lines}
