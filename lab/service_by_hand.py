"""The service, started outside its unit."""

import socket
import subprocess

from lab.service_view import PROGRAM

# The thread sanitizer cannot place its shadow memory in a randomised address space.
_COMMAND = f"umask 077; exec setarch -R {PROGRAM} other --version"


def start_by_hand(machine, user="root", **options):
    """Starts the service with a umask of its own; its log goes to a pipe. See Machine.popen."""
    return machine.popen(_COMMAND, user, **{"stderr": subprocess.PIPE, **options})


class Supervisor:
    """Takes the place of the service manager and of the journal.

    Messages to the manager and log lines come through one queue, which shows their order.
    """

    def __init__(self, machine):
        self._machine = machine
        self._queue, self._log = (socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
                                  for _ in range(2))
        self._queue.settimeout(60)
        self._queue.bind(str(machine.on_host("/run/told")))
        self._log.connect(self._queue.getsockname())

    def start(self):
        return start_by_hand(self._machine, env={"NOTIFY_SOCKET": "/run/told"}, stderr=self._log)

    def log_before(self, message):
        """The log between the message before and this one to the service manager."""
        return "".join(iter(lambda: self._queue.recv(999).decode(), message))

    def has_more(self):
        """Whether anything came after the last message that was waited for."""
        self._queue.settimeout(0)
        try:
            return self._queue.recv(999) != b""
        except BlockingIOError:
            return False
