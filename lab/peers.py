"""Processes of users in sessions of every kind, as peers of the control socket."""

from functools import partial
from typing import NamedTuple

from lab.client_log import running
from lab.service_view import CLIENT
from lab.session import Session

FAR_AWAY = {"remote_host": "192.0.2.7", "graphical": False}
# Connects and ends. Its child then sends the request, as a peer whose process no longer exists.
_SEND_AFTER_THE_END = r"""
use IO::Socket::UNIX; my $socket = IO::Socket::UNIX->new(Peer => pop) or die; my $request = <STDIN>;
my $parent = $$; exit if fork; select undef, undef, undef, 0.02 while kill 0, $parent;
print $socket $request; $socket->flush; print <$socket>"""


def clients_of_everybody(machine):
    """Starts clients of users in sessions of every kind; returns them in the order of the starts.

    Alice has two, kiosk has no session, one user has no name and carol, the last, has no manager.
    """
    carol = machine.login("carol")
    alice, bob = [machine.login(user, seat=None) for user in ("alice", "bob")]
    machine.run("systemctl mask --now user@1003.service")
    return [running(machine, client) for client in (
        machine.popen(["setpriv", "--reuid", "4711", "--clear-groups", CLIENT]),
        alice.start([CLIENT, "alice's first"]), bob.start([CLIENT, "bob's"]),
        machine.popen([CLIENT, "sessionless"], user="kiosk"),
        alice.start([CLIENT, "alice's second"]), carol.start([CLIENT, "carol's"]))]


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
