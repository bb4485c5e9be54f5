"""What a hostile update server, a full disk or an unlucky moment may do, and may not."""

import pytest

from lab.check_pass import NOTHING, STAGED, asked, check, first_pass, refused
from lab.misbehaviour import request_to, serve_by_hand
from lab.outside_world import CHECK_PATH, DOWNLOADS, UPDATES
from lab.releases import FLAVOUR, publish_by_hand, release
from lab.service_view import CONFIG, STATE, ask, kept, main_pid, wait_for_passes

MIB = 1 << 20
HUGE = b'{"files":[],"version":"1.1","filling":"%s"}' % (b"x" * 60 * MIB)
HOSTILE = [
    (b"[" * 200_000, "nesting too deep at offset 1000"),
    (b"[" * 10_000 + b"]" * 10_000, "nesting too deep at offset 1000"),
    (b'{"version":"1.1","a":%s' % (b'{"a":' * 10_000), "nesting too deep at offset 5016"),
    (b"{%s}" % b",".join(b'"%d":0' % key for key in range(1_000_000)), "manifest has no version"),
]


def process(machine):
    """The fields of the service's /proc/PID/status that name it and tell its memory, in MiB."""
    words = machine.run(["cat", f"/proc/{main_pid(machine)}/status"]).split()
    return words[words.index("Pid:") + 1], int(words[words.index("VmRSS:") + 1]) / 1024


def test_no_answer_brings_the_service_down(machine):
    pid, _ = process(machine)
    for answer, error in HOSTILE:
        machine.misbehave(UPDATES, CHECK_PATH, answer)
        check(machine)
        assert ask(machine, "STATUS") == f"IDLE - unreadable manifest: {error}"
        now, resident = process(machine)
        assert now == pid and (FLAVOUR != "release" or resident < 20)


def test_status_is_answered_while_a_huge_answer_comes_in(machine):
    machine.write(CONFIG, f"Endpoint={UPDATES}:8443\n")
    server = serve_by_hand(machine)
    ask(machine, "CHECK")
    request_to(server, b'"}')
    server.stdin.write(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n" % len(HUGE))
    server.stdin.write(HUGE[:40 * MIB])
    assert process(machine)[1] > 35 and ask(machine, "STATUS") == "IDLE - "
    server.stdin.write(HUGE[40 * MIB:])
    wait_for_passes(machine)
    assert ask(machine, "STATUS") == "IDLE - unreadable manifest: manifest has no files"
    assert FLAVOUR != "release" or process(machine)[1] < 20


@pytest.mark.parametrize("size, words", [
    (64 * 1024, "download failed, Failed writing received data to disk/application"),
    (5, "write failed")])
def test_a_full_disk(machine, size, words):
    publish_by_hand(machine, [("x", b"x" * size)])
    machine.run(f"mkdir -p {STATE} && mount -t tmpfs -o size=32k,mode=755 tmpfs {STATE} && "
                f"! head -c 64K /dev/zero >{STATE}/filling")
    _, status, requests, files = first_pass(machine)
    assert (status, files) == (f"IDLE - refused: x: {words}", sorted([*NOTHING, "filling 644"]))
    assert requests == [*asked(), f"{DOWNLOADS} GET /packages/1.1/0 200"]
    machine.run(f"rm {STATE}/filling && mount -o remount,size=1m {STATE}")
    assert check(machine)[-1] == STAGED
    assert len(machine.read(f"{STATE}/install-id")) == 37


def test_a_pass_that_fails_late_takes_away_what_another_has_staged(machine):
    machine.publish(release("1.1"))
    name = "vantrell-harbor_1.1_amd64.deb"
    came = machine.misbehave(DOWNLOADS, f"/packages/1.1/{name}", "hang")
    ask(machine, "CHECK")
    assert came.wait(60) and ask(machine, "STATUS") == "IDLE - "
    machine.run("rm -r /srv/lab/misbehave/*")  # whoever asks from now on gets the file
    ask(machine, "CHECK")
    machine.wait_for_log(STAGED)
    start = len(machine.log())
    machine.behave()
    wait_for_passes(machine)
    why = f"{name}: download failed, Server returned nothing (no headers, no data)"
    assert machine.log()[start:] == refused(why) and kept(machine) == NOTHING
    # The record stands, but nobody takes its word for what lies on the disk.
    assert ask(machine, "STATUS") == f"READY 1.1 refused: {why}"
    assert machine.send("APPLY") == "OK applying"
    machine.wait_for_log("[UpdateSvc] apply refused: the staged set is empty")
    assert first_pass(machine)[0][-1] == STAGED
    assert f"client-staging/1.1/{name} 644" in kept(machine)
