"""Who may change the update ring: root, and the users whose session is active on a seat."""

from lab.machine import SOCKET
from lab.peers import log_in_everybody
from lab.service_view import CONFIG, dial, receive, restart, wait_for_passes

RIGHTS = "ERR only a signed-in user at this machine may change the update channel\n"
SEATED = ["root", "alice", "alice outside", "bob", "bob outside"]
SEATS, SESSIONS = "/run/systemd/seats", "/run/systemd/sessions"


def set_ring(machine, run):
    """The reply to a peer. OK changes the setting; an error leaves the file as it was."""
    machine.write(CONFIG, "Channel=dev\nProxy=a=b\n", 0o600)
    reply = run(["nc", "-U", "-N", SOCKET], input="SETRING beta\n")
    ring, mode = ("beta", "644") if reply == "OK\n" else ("dev", "600")
    assert machine.read(CONFIG) == f"Channel={ring}\nProxy=a=b\n"
    assert machine.run(["stat", "--format=%a %U", CONFIG]) == f"{mode} root\n"
    return reply


def test_root_and_the_user_of_an_active_local_session_may_change_the_ring(machine):
    peers = log_in_everybody(machine)
    alice, bob, everybody = peers.alice.id, peers.bob.id, peers.run
    assert peers.alice.property("Active") == "yes"
    for change, allowed in (
            ("true", SEATED[:3]),
            (f"loginctl activate {peers.alice_remote.id}", SEATED[:1]),
            (f"loginctl activate {bob}", SEATED[:1] + SEATED[3:]),
            # Without logind, libsystemd answers from the files that logind has left.
            ("systemctl mask --now systemd-logind", SEATED[:1] + SEATED[3:]),
            (f"sed 's/^ACTIVE=.*/ACTIVE={alice}/' {SEATS}/seat0 >{SEATS}/seat1; "
             f"sed -i 's/^ACTIVE=0/ACTIVE=1/' {SESSIONS}/{alice}", SEATED),
            (f"sed -i /^REMOTE=/d {SESSIONS}/{bob}", SEATED[:3]),
            (f"rm -r {SEATS} {SESSIONS}", SEATED[:1])):
        machine.run(change)
        replies = {who: set_ring(machine, run) for who, run in everybody.items()}
        assert replies == {who: "OK\n" if who in allowed else RIGHTS for who in everybody}, change
    with dial(machine) as peer_without_pid:
        peer_without_pid.sendall(b"SETRING beta\n")
        assert receive(peer_without_pid) == RIGHTS


def test_a_new_ring_starts_a_check_for_it_and_a_refused_one_starts_none(machine):
    restart(machine)
    machine.forget_requests()
    assert machine.send("SETRING dev", user="carol") + "\n" == RIGHTS
    machine.run(["mkdir", "-p", CONFIG + ".tmp"])
    assert machine.send("SETRING dev") == "ERR could not write the update channel"
    machine.run(["rmdir", CONFIG + ".tmp"])
    for ring in ("beta", "dev", "dev"):
        assert machine.send(f"SETRING {ring}") == "OK"
        wait_for_passes(machine)
    assert machine.read(CONFIG) == "Channel=dev\n"
    rings = [request.body.partition('"ring":')[2].split(",")[0] for request in machine.requests()]
    assert rings == ['"beta"', '"dev"', '"dev"']
    assert [line for line in machine.log() if "ring set" in line] == \
        [f"[UpdateSvc] ring set to {ring}" for ring in ("beta", "dev", "dev")]
