"""Who may change the update ring: root, and the users whose session is active on a seat."""

import json

from lab.check_pass import begin
from lab.machine import SOCKET
from lab.peers import log_in_everybody
from lab.seats import END_LOGIND, FORGET_ALL, activate, add_seat, forget_remoteness
from lab.service_view import CONFIG, ask, wait_for_passes

RIGHTS = "ERR only a signed-in user at this machine may change the update channel"
SEATED = ["root", "alice", "alice outside", "bob", "bob outside"]


def set_ring(machine, run):
    """The reply to a peer. OK changes the setting; an error leaves the file as it was."""
    machine.write(CONFIG, "Channel=dev\nProxy=a=b\n", 0o600)
    reply = run(["nc", "-U", "-N", SOCKET], input="SETRING beta\n")
    ring, mode = ("beta", "644") if reply == "OK\n" else ("dev", "600")
    assert machine.read(CONFIG) == f"Channel={ring}\nProxy=a=b\n"
    assert machine.run(["stat", "--format=%a %U", CONFIG]) == f"{mode} root\n"
    return reply.rstrip("\n")


def test_root_and_the_user_of_an_active_local_session_may_change_the_ring(machine):
    peers = log_in_everybody(machine)
    for change, allowed in (
            ("true", SEATED[:3]),
            (activate(peers.alice_remote), SEATED[:1]),
            (activate(peers.bob), SEATED[:1] + SEATED[3:]),
            (END_LOGIND, SEATED[:1] + SEATED[3:]),
            (add_seat(peers.alice), SEATED),
            (forget_remoteness(peers.bob), SEATED[:3]),
            (FORGET_ALL, SEATED[:1])):
        machine.run(change)
        replies = {who: set_ring(machine, run) for who, run in peers.run.items()}
        assert replies == {who: "OK" if who in allowed else RIGHTS for who in peers.run}, change
    assert ask(machine, "SETRING beta") == RIGHTS  # the machine cannot name this pid


def test_a_new_ring_starts_a_check_for_it_and_a_refused_one_starts_none(machine):
    begin(machine)
    assert machine.send("SETRING dev", user="carol") == RIGHTS
    machine.run(["mkdir", "-p", CONFIG + ".tmp"])
    assert machine.send("SETRING dev") == "ERR could not write the update channel"
    machine.run(["rmdir", CONFIG + ".tmp"])
    for ring in ("beta", "dev", "dev"):
        assert machine.send(f"SETRING {ring}") == "OK"
        wait_for_passes(machine)
    assert machine.read(CONFIG) == "Channel=dev\n"
    asked = [json.loads(request.body)["ring"] for request in machine.requests()]
    assert asked == ["beta", "dev", "dev"]
    assert [line for line in machine.log() if "ring set" in line] == [
        f"[UpdateSvc] ring set to {ring}" for ring in asked]
