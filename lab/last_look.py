"""The state of a machine at the end of a poweroff, after the service has ended."""

import contextlib
import subprocess

from lab.machine import SERVICE

# What `systemctl poweroff` does in the end. apt 3 has logind refuse that during an install.
POWEROFF = "systemctl start --no-block --job-mode=replace-irreversibly poweroff.target"
# It stops after the update service does, and the machine waits for it.
_UNIT = f"""[Unit]
Before={SERVICE}
[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart=mkfifo /run/end
ExecStop=sh -c '{{ %s; }} >/run/end; sleep infinity'
"""


@contextlib.contextmanager
def last_look(machine, command):
    """Runs a shell line when the service has ended; yields a function that returns its output."""
    machine.write("/etc/systemd/system/last-look.service", _UNIT % command)
    machine.run("systemctl start last-look")
    with machine.popen(["cat", "/run/end"], stdout=subprocess.PIPE, text=True) as reader:
        try:
            yield lambda: reader.communicate(timeout=60)[0]
        finally:
            reader.kill()  # after a failure too: the end of the block waits for it
