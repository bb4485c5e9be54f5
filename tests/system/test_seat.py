"""Who may change the update ring: root, and who sits at the machine by the word of logind."""

from functools import partial

from lab.machine import SOCKET
from lab.service_view import CONFIG, dial, wait_for_passes

RIGHTS = "ERR only a signed-in user at this machine may change the update channel\n"
# The key stands there twice, beside much that is none.
BEFORE = (b"# kept = \xff\n\n Channel = dev \r\n Proxy=a=b \r\nchannel=dev\n"
          b"#Channel=dev\nChannel=\n #Channel=dev\nlast")
AFTER = (b"# kept = \xff\n\nChannel=beta\n Proxy=a=b \r\nchannel=dev\n"
         b"#Channel=dev\nChannel=beta\n #Channel=dev\nlast\n")


def set_ring(machine, run):
    """The reply to a peer. A yes must have changed one setting, and a no nothing at all."""
    machine.write(CONFIG, BEFORE, 0o600)
    reply = run(["nc", "-U", "-N", SOCKET], input="SETRING beta\n")
    left = machine.run(f"cat {CONFIG}; stat --format='|%a %U' {CONFIG}; ls -A /etc/vantrell-harbor",
                       binary=True)
    settings = AFTER + b"|644" if reply == "OK\n" else BEFORE + b"|600"
    assert left == settings + b" root\nupdate.conf\n"
    return reply


def test_root_and_who_sits_at_the_machine_may_change_the_ring(machine):
    far_away = {"remote_host": "192.0.2.7", "graphical": False}
    screen_taken = machine.login("alice", **far_away)
    bob, alice = machine.login("bob"), machine.login("alice")
    remote = machine.login("alice", seat=None, **far_away)
    seatless = machine.login("alice", seat=None, graphical=False)
    sessions = (screen_taken, bob, alice, remote, seatless)
    assert [s.property("Active") for s in sessions] == ["no", "no", "yes", "yes", "yes"]
    group = f"/user.slice/user-1001.slice/session-{alice.id}.scope"
    everybody = {
        "root": machine.run, "alice": alice.run, "bob": bob.run, "remote alice": remote.run,
        "remote alice on a seat": screen_taken.run, "alice without a seat": seatless.run,
        "alice outside": partial(machine.run, user="alice"),
        "bob outside": partial(machine.run, user="bob"),
        "bob in alice's session": partial(machine.run, user="bob", group=group)}
    for change, allowed in (
            ("true", {"root", "alice", "alice outside"}),
            (f"loginctl activate {screen_taken.id}", {"root"}),
            (f"loginctl activate {bob.id}", {"root", "bob", "bob outside"}),
            # libsystemd answers from the files that logind leaves behind.
            ("systemctl mask --now systemd-logind", {"root", "bob", "bob outside"}),
            ("rm -r /run/systemd/sessions /run/systemd/seats", {"root"})):
        machine.run(change)
        replies = {who: set_ring(machine, run) for who, run in everybody.items()}
        assert replies == {who: "OK\n" if who in allowed else RIGHTS for who in everybody}, change
    with dial(machine) as peer_without_pid:
        peer_without_pid.sendall(b"SETRING beta\n")
        assert peer_without_pid.makefile().read() == RIGHTS


def test_the_next_check_asks_for_the_new_ring_and_a_refusal_starts_none(machine):
    assert machine.send("SETRING beta") == "OK" and machine.read(CONFIG) == "Channel=beta\n"
    for ring in ("", "BETA", "beta ", " beta", "other"):
        assert machine.send(f"SETRING {ring}", user="carol") == "ERR unknown ring"
    assert machine.send("SETRING dev", user="carol") + "\n" == RIGHTS
    machine.run(["mkdir", CONFIG + ".tmp"])
    assert machine.send("SETRING dev") == "ERR could not write the update channel"
    machine.run(["rmdir", CONFIG + ".tmp"])
    for _ in range(2):
        assert machine.send("SETRING dev") == "OK"
        wait_for_passes(machine)
    rings = [request.body.partition('"ring":')[2].split(",")[0] for request in machine.requests()]
    assert rings == ['"beta"', '"dev"', '"dev"']
    assert [line for line in machine.log() if "ring set" in line] == \
        [f"[UpdateSvc] ring set to {ring}" for ring in ("beta", "dev", "dev")]
