"""A hostile update server, a full disk and passes that overlap: the service stays up and small."""

import pytest

from lab.check_pass import NOTHING, STAGED, asked, check, first_pass, refused
from lab.outside_world import CHECK_PATH, DOWNLOADS, UPDATES
from lab.releases import FLAVOUR, publish_by_hand, release
from lab.service_view import STATE, ask, kept, mebibytes, process_folder, restart, wait_for_passes

LIMIT = 20 if FLAVOUR == "release" else 10_000  # MiB; a sanitizer needs memory of its own
HOSTILE = [
    (b"[" * 200_000, "nesting too deep at offset 1000"),
    (b"{%s}" % b",".join(b'"%d":0' % key for key in range(1_000_000)), "manifest has no version"),
    (b'{"files":[],"version":"1.1","filling":"%s"}' % (b"x" * 60_000_000), "manifest has no files"),
]


def test_a_hostile_answer_ends_in_a_status_and_its_memory_is_returned(machine):
    for answer, error in HOSTILE:
        restart(machine)
        process = process_folder(machine)
        machine.misbehave(UPDATES, CHECK_PATH, answer)
        check(machine)
        assert ask(machine, "STATUS") == f"IDLE - unreadable manifest: {error}"
        assert mebibytes(process, "VmRSS") < LIMIT, error


@pytest.mark.parametrize("size, words", [
    (64 * 1024, "download failed, Failed writing received data to disk/application"),
    (5, "write failed")], ids=["write", "flush"])
def test_a_release_refused_on_a_full_disk_is_staged_once_there_is_room(machine, size, words):
    publish_by_hand(machine, [("x", b"x" * size)])
    machine.run(f"mkdir -p {STATE} && mount -t tmpfs -o size=32k,mode=755 tmpfs {STATE} && "
                f"! head -c 64K /dev/zero >{STATE}/filling")
    full = first_pass(machine)
    assert full.status == f"IDLE - refused: x: {words}"
    assert full.kept == ["client-staging 755", "filling 644", "install-id 644"]
    assert full.requests == [*asked(), f"{DOWNLOADS} GET /packages/1.1/0 200"]
    machine.run(f"rm {STATE}/filling && mount -o remount,size=1m {STATE}")
    assert check(machine)[-1] == STAGED
    assert len(machine.read(f"{STATE}/install-id")) == 37


def test_a_pass_that_fails_late_removes_what_another_pass_has_staged(machine):
    machine.publish(release("1.1"))
    name = "vantrell-harbor_1.1_amd64.deb"
    requested = machine.misbehave(DOWNLOADS, f"/packages/1.1/{name}", "hang")
    restart(machine)
    ask(machine, "CHECK")
    assert requested.wait(60)
    machine.run("rm -r /srv/lab/misbehave/*")  # later requests get the file
    ask(machine, "CHECK")
    machine.wait_for_log(STAGED)
    start = len(machine.log())
    machine.behave()
    wait_for_passes(machine)
    why = f"{name}: download failed, Server returned nothing (no headers, no data)"
    assert machine.log()[start:] == refused(why)
    assert kept(machine) == NOTHING
    assert ask(machine, "STATUS") == f"READY 1.1 refused: {why}"  # an apply then finds no file
