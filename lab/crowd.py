"""Many peers of the control socket at the same time, with requests of every kind."""

import collections
import contextlib
import random
import re
import socket
import subprocess
import threading
from typing import NamedTuple

from lab.client_log import running
from lab.machine import SOCKET
from lab.releases import release
from lab.service_view import CLIENT, CLIENT_BEHAVIOUR, CONFIG, ask, dial, receive

PEERS = 32  # as many as the service serves at once


class Kind(NamedTuple):
    weight: int
    request: bytes
    reply: str  # a pattern for the whole of it


STATUS = r"(IDLE -|READY \S+) .*\n"
KINDS = [
    Kind(300, b"STATUS\n", STATUS),
    Kind(100, b"STATUS", STATUS),  # ended by the end of the input
    Kind(200, b"WINDOW\r\n", r"(OPEN|SHUT) .*\n"),
    Kind(100, b"SETRING beta\n", r"ERR only a signed-in user at this machine may .*\n"),
    Kind(50, b"SETRING other\n", r"ERR unknown ring\n"),
    Kind(100, b"HOLD\n", r"ERR only the Vantrell Harbor client may hold a session\n"),
    Kind(50, b"\n", r"ERR unknown request\n"),
    Kind(50, b"x" * 5000, r"ERR unknown request\n"),
    Kind(48, b"", ""),
    Kind(2, b"CHECK\n", r"OK checking\n"),
]


def _send(machine, kind):
    """Returns the reply; it is empty when the service closes the connection unread."""
    with contextlib.suppress(ConnectionError), dial(machine) as connection:
        connection.sendall(kind.request)
        connection.shutdown(socket.SHUT_WR)
        return receive(connection)
    return ""


class Crowd(NamedTuple):
    replies: collections.Counter  # how many each request got; "none" counts those without one
    wrong: list  # pairs of request and reply


@contextlib.contextmanager
def crowd(machine, count=None):
    """PEERS peers send `count` requests in all, or without it until the block ends.

    Yields a Crowd, which is complete after the block.
    """
    ended, seen = threading.Event(), Crowd(collections.Counter(), [])
    weights = [kind.weight for kind in KINDS]
    counted = [collections.Counter() for _ in range(PEERS)]

    def be_peer(number):
        rng, left = random.Random(number), len(range(number, count or 0, PEERS))
        replies = counted[number]  # a Counter of several threads would lose some
        while left if count else not ended.is_set():
            left -= 1
            [kind] = rng.choices(KINDS, weights)
            reply = _send(machine, kind)
            replies[kind.request if reply else "none"] += 1
            if reply and not re.fullmatch(kind.reply, reply):
                seen.wrong.append((kind.request, reply))

    peers = [threading.Thread(target=be_peer, args=[number]) for number in range(PEERS)]
    for peer in peers:
        peer.start()
    try:
        yield seen
    finally:
        ended.set()
        for peer in peers:
            peer.join()
        for replies in counted:
            seen.replies.update(replies)


# Loops of the machine; each ends with its process.
_CHANGE_RING = f"""while :; do for ring in dev prod; do
echo SETRING $ring | nc -U -N {SOCKET}; done; done"""
_REWRITE_SETTINGS = f"""while :; do for line in WindowEnabled=1 '# a comment' Unknown=1; do
{{ cat {CONFIG}; echo "$line"; }} | head -n 20 >{CONFIG}.new; mv {CONFIG}.new {CONFIG}
done; done"""
_TOGGLE_SESSION = "while kill -USR2 {0}; do sleep 0.02; kill -HUP {0}; done"


def stubborn_client(machine):
    """Starts a client of bob's that an install does not end."""
    machine.write(CLIENT_BEHAVIOUR, "ignore-term")
    return running(machine, machine.popen([CLIENT], user="bob"))


@contextlib.contextmanager
def changes(machine, client):
    """The ring and the settings change all the time, and the client's session comes and goes.

    The client is killed at the end.
    """
    with contextlib.ExitStack() as stack:
        for loop in (_CHANGE_RING, _REWRITE_SETTINGS, _TOGGLE_SESSION.format(client.pid_inside)):
            process = stack.enter_context(machine.popen(loop, stdout=subprocess.DEVNULL,
                                                        stderr=subprocess.DEVNULL))
            stack.callback(process.kill)
        yield
    client.kill()


def alternate_offers(machine, versions, times):
    """Offers one published release after the other and has each staged; the passes overlap."""
    for version in versions * times:
        machine.offer((release(version) / "offer.json").read_bytes())
        for _ in range(4):
            with contextlib.suppress(OSError):  # too many connections
                ask(machine, "CHECK")
