"""Processes of users in sessions of every kind, as peers of the control socket."""

from functools import partial
from typing import NamedTuple

from lab.session import Session

FAR_AWAY = {"remote_host": "192.0.2.7", "graphical": False}
# Connects and ends. Its child then sends the request, as a peer whose process no longer exists.
_SEND_AFTER_THE_END = r"""
use IO::Socket::UNIX; my $socket = IO::Socket::UNIX->new(Peer => pop) or die; my $request = <STDIN>;
my $parent = $$; exit if fork; select undef, undef, undef, 0.02 while kill 0, $parent;
print $socket $request; $socket->flush; print <$socket>"""


class Peers(NamedTuple):
    """Sessions on the seat, and for each kind of peer a function like Machine.run."""

    alice: Session  # the active one
    bob: Session
    alice_remote: Session
    run: dict


def log_in_everybody(machine):
    """Opens the sessions; returns Peers."""
    alice_remote = machine.login("alice", **FAR_AWAY)
    bob, alice = machine.login("bob"), machine.login("alice")
    group = f"/user.slice/user-1001.slice/session-{alice.id}.scope"
    remote = machine.login("alice", seat=None, **FAR_AWAY)
    return Peers(alice, bob, alice_remote, {
        "root": machine.run, "alice": alice.run, "bob": bob.run,
        "remote alice": remote.run,
        "remote alice after her end": lambda command, input: remote.run(
            ["perl", "-e", _SEND_AFTER_THE_END, *command], input=input, env={"LC_ALL": "C"}),
        "remote alice on a seat": alice_remote.run,
        "alice without a seat": machine.login("alice", seat=None, graphical=False).run,
        "alice outside": partial(machine.run, user="alice"),
        "bob outside": partial(machine.run, user="bob"),
        "bob in alice's session": partial(machine.run, user="bob", group=group)})
