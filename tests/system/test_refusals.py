"""What a check pass refuses and accepts, what it logs and requests, and what it leaves."""

import time
from collections import namedtuple

import pytest

from lab import hostile_answers
from lab.check_pass import (AGREED, CHECKED, IDS, NOTHING, STAGED, VERIFIED, Pass, asked,
                            asked_until, begin, check, fetched, first_pass, next_pass,
                            no_quorum, not_connected, refused)
from lab.damage import FILL_DISK, MAKE_ROOM
from lab.invariants import observe, violations
from lab.misbehaviour import answer_by_hand, request_to, serve_by_hand
from lab.outside_world import CHECK_PATH, DOWNLOADS, STORAGE, UPDATES
from lab.releases import (BLOCK, COMPONENT, DEB, DIGEST, FLAVOUR, HASH, SIGNATURE, fact, manifest,
                          publish_by_hand, release)
from lab.service_view import (CONFIG, RECORD, STAGING, STATE, ask, kept, mebibytes,
                              process_folder, restart, wait_for_passes)

SILENT = "Server returned nothing (no headers, no data)"
PEER = "SSL peer certificate or SSH remote key was not OK"
DISAGREES = f"witness {{}} disagrees for 1.1/{COMPONENT}"
CHECK = (UPDATES, CHECK_PATH)
FILES = [(DOWNLOADS, "/packages/1.1/0"), (DOWNLOADS, "/packages/1.1/1")]

# `how` is that of Machine.misbehave(). Without a status in the server's log, the whole host fails.
# One service meets all of them, and a row would not be logged after one with the same words.
Fault = namedtuple("Fault", "place how logged why")
FAULTS = [
    Fault(CHECK, "wrong name", None, f"curl error {PEER}"),
    Fault(CHECK, 204, 204, "up to date"),
    Fault(CHECK, 500, 500, "update service returned HTTP 500"),
    Fault(CHECK, f"https://{DOWNLOADS}/", 302, "update service returned HTTP 302"),
    Fault(CHECK, "cut", 200, "curl error Transferred a partial file"),
    Fault(CHECK, "close", 444, f"curl error {SILENT}"),
    Fault(CHECK, "not listening", None, "curl error {not_connected}"),
    Fault(CHECK, "unknown authority", None, f"curl error {PEER}"),
    Fault(fact(1, BLOCK), f"http://{DOWNLOADS}/", 302,
          "witness 1 unreachable: download failed, Unsupported protocol"),
    Fault(fact(1, SIGNATURE), 204, 204, "witness 1 unreachable: HTTP 204"),
    Fault(fact(1, DIGEST), 404, 404, DISAGREES.format(1)),
    Fault(fact(2, BLOCK), "wrong name", None, f"witness 2 unreachable: download failed, {PEER}"),
    Fault(fact(2, SIGNATURE), "cut", 200,
          "witness 2 unreachable: download failed, Transferred a partial file"),
    Fault(fact(2, DIGEST), b"another", 200, DISAGREES.format(2)),
    Fault(fact(3, BLOCK), "close", 444, f"witness 3 unreachable: download failed, {SILENT}"),
    Fault(fact(3, SIGNATURE), b"another", 200, "witness 3 serves a different signed release"),
    Fault(fact(3, DIGEST), "cut", 200, DISAGREES.format(3)),
    Fault(FILES[0], 404, 404, "a: HTTP 404"),
    Fault(FILES[0], "cut", 200, "a: download failed, Transferred a partial file"),
    Fault(FILES[1], b"other content", 200, "s/b: sha256 mismatch"),
]


def test_a_fault_of_a_server_ends_the_pass_and_leaves_nothing_on_disk(machine):
    first_pass(machine)
    before, no_server = observe(machine), not_connected(machine)
    publish_by_hand(machine, [("a", b"content of a"), ("s/b", b"content of b")])
    for row in FAULTS:
        host, path = row.place
        machine.misbehave(host, path if row.logged else None, row.how)
        why = row.why.format(not_connected=no_server)
        log, prefix, left = no_quorum(why), "refused: ", NOTHING
        if row.place == CHECK:
            log, prefix, left = [f"[UpdateSvc] {why}"], "", IDS
        elif row.place in FILES:
            log = [f"{VERIFIED} 1", AGREED, *refused(why)]
        assert next_pass(machine) == Pass(
            log, f"IDLE - {prefix}{why}", asked_until(row.place, row.logged), left), row
        assert violations(machine, before) == [], row
        machine.behave()
    assert check(machine)[-1] == STAGED


def test_a_strangers_key_and_a_folder_that_cannot_be_made_refuse_a_release(machine):
    publish_by_hand(machine, [("a", b"content of a")], "stranger")
    seen = first_pass(machine)
    assert seen.status == "IDLE - refused: 1.1 is not signed by a Vantrell release key"
    assert seen.requests == asked()
    publish_by_hand(machine, [("a", b"content of a"), ("a/b", b"content of b")])
    assert first_pass(machine).status == "IDLE - refused: cannot create staging subdir for a/b"
    machine.run(f"rmdir {STAGING} && touch {STAGING}")
    assert first_pass(machine).status == "IDLE - refused: cannot create staging dir"


def test_empty_and_repeated_files_folders_redirects_and_the_second_key_are_accepted(machine):
    files = [("x", b""), ("sub/dir/y", b"content of y"), ("sub/dir/y", b"content of y")]
    publish_by_hand(machine, files, "release-2")
    host, path = fact(3, BLOCK)
    machine.run(["cp", machine.document(host, path), machine.document(STORAGE, "/elsewhere")])
    machine.misbehave(host, path, f"https://{STORAGE}/elsewhere")
    requests = [*asked(6), f"{host} GET {path} 302", f"{STORAGE} GET /elsewhere 200", *asked()[8:],
                *fetched(3)]
    staged = [f"client-staging/1.1{path}" for path in (
        " 755", "/sub 755", "/sub/dir 755", "/sub/dir/y 644", "/x 644")]
    assert first_pass(machine) == Pass(
        [f"{VERIFIED} 2", AGREED, STAGED], "READY 1.1 staged 1.1", requests,
        sorted(NOTHING + staged))
    assert {(request.agent, request.cache, request.body) for request in machine.requests()[1:]} == {
        ("VantrellUpdater/1.0", "no-cache", "")}


def test_a_silent_server_delays_only_its_own_pass_and_for_20_seconds(machine):
    machine.publish(release("1.1"))
    begin(machine)
    assert ask(machine, "STATUS") == "IDLE - "
    start, began = len(machine.log()), time.monotonic()
    for number, host in enumerate((UPDATES, STORAGE), 1):
        machine.behave()
        machine.misbehave(host, None, "mute")
        ask(machine, "CHECK")
        machine.wait_for_mute(number)
    assert ask(machine, "STATUS") == "IDLE - "
    assert machine.log()[start:] == []
    wait_for_passes(machine)
    assert 19 < time.monotonic() - began < 45
    why = "witness 2 unreachable: download failed, Timeout was reached"
    assert sorted(machine.log()[start:]) == sorted([
        "[UpdateSvc] curl error Timeout was reached", *no_quorum(why)])
    assert machine.request_lines() == asked(3)
    assert kept(machine) == NOTHING


def test_a_status_is_logged_once_and_it_and_a_staged_release_stay_until_the_next(machine):
    publish_by_hand(machine, [("x", b"content of x")])
    machine.misbehave(*fact(1, BLOCK), 404)
    why = "witness 1 unreachable: HTTP 404"
    assert first_pass(machine).log == no_quorum(why)
    assert check(machine) == no_quorum(why)[:2]
    machine.behave()
    assert check(machine)[-1] == STAGED
    older = kept(machine)
    machine.misbehave(UPDATES, CHECK_PATH, 500)
    assert check(machine) == ["[UpdateSvc] update service returned HTTP 500"]
    machine.behave()
    machine.forget_requests()
    machine.offer(manifest("1.1", "x"))
    assert check(machine) == []
    assert machine.request_lines() == [CHECKED]
    assert ask(machine, "STATUS") == "READY 1.1 update service returned HTTP 500"

    machine.publish(release("1.2"))
    machine.misbehave(*fact(3, DIGEST, "1.2"), 404)
    check(machine)
    assert ask(machine, "STATUS") == f"READY 1.1 refused: witness 3 disagrees for 1.2/{COMPONENT}"
    assert kept(machine) == older
    machine.write(f"{STAGING}/1.2/left-over", "")
    machine.behave()
    check(machine)
    assert ask(machine, "STATUS") == "READY 1.2 staged 1.2"
    newer = ["client-staging/1.2 755", "client-staging/1.2/vantrell-harbor_1.2_amd64.deb 644"]
    assert kept(machine) == sorted([*older, *newer])
    again = first_pass(machine)  # the start has removed what was staged
    assert len(again.requests) == 11
    assert again.kept == sorted([*NOTHING, *newer])


Offer = namedtuple("Offer", "version names status")
OFFERS = [  # the record lists x, and package 1.0 is installed
    Offer("1.1", "x", "IDLE - up to date"),
    Offer("1.0", "xy", "IDLE - up to date"),
    Offer("1", "xy", "IDLE - refused: witness 1 unreachable: HTTP 404"),
]


def test_an_offer_is_installed_when_the_record_lists_it_or_the_package_has_its_version(machine):
    machine.write(RECORD, f"x {HASH}")
    for row in OFFERS:
        machine.offer(manifest(row.version, row.names))
        assert first_pass(machine).status == row.status, row


def test_the_check_names_ring_system_and_install_id_and_witnesses_are_asked_by_ring(machine):
    machine.publish(release("1.1"))
    machine.write(CONFIG, f"Channel=Beta\nEndpoint=https://{UPDATES}:8443//\n")
    server = serve_by_hand(machine)
    begin(machine)
    ask(machine, "CHECK")
    head, body = request_to(server, b'"}')
    install_id, kernel = machine.read(f"{STATE}/install-id"), machine.run(["uname", "-r"])
    system = machine.run('. /etc/os-release; printf %s "$PRETTY_NAME"')
    assert body == (
        '{"ring":"beta","component":"client-linux-amd64","current_version":"1.0",'
        '"driver_fingerprint":"","os_build":"'
        f'{system} {kernel[:-1]} x86_64","install_id":"{install_id[:-1]}"}}')
    assert head.split("\r\n") == [
        f"POST {CHECK_PATH} HTTP/1.1", f"Host: {UPDATES}:8443", "User-Agent: VantrellUpdater/1.0",
        "Accept: */*", "Content-Type: application/json", f"Content-Length: {len(body)}"]
    machine.write(CONFIG, "Channel=dev\n")  # before the witnesses of the same pass are asked
    answer_by_hand(server, (release("1.1") / "offer.json").read_bytes())
    wait_for_passes(machine)
    assert machine.request_lines() == [f"{DOWNLOADS} GET /witness/dev/1.1.release.block 404"]


LIMIT, MANY = (20, 12) if FLAVOUR == "release" else (10_000, 1)  # a sanitizer keeps freed memory
Hostile = namedtuple("Hostile", "answer passes error")
HOSTILE = [
    Hostile(hostile_answers.DEEP, 1, "nesting too deep at offset 1000"),
    Hostile(hostile_answers.MANY_KEYS, 1, "manifest has no version"),
    Hostile(hostile_answers.LONG_TEXT, 1, "manifest has no files"),
    Hostile(hostile_answers.MANY_VALUES, MANY, "manifest has no files"),
]


def test_a_hostile_answer_ends_in_a_status_and_its_memory_is_returned(machine):
    for row in HOSTILE:
        restart(machine)
        process = process_folder(machine)
        machine.misbehave(UPDATES, CHECK_PATH, row.answer)
        for _ in range(row.passes):
            ask(machine, "CHECK")
        wait_for_passes(machine)
        assert ask(machine, "STATUS") == f"IDLE - unreadable manifest: {row.error}"
        assert mebibytes(process, "VmRSS") < LIMIT, row.error


@pytest.mark.parametrize("size, words", [
    (64 * 1024, "download failed, Failed writing received data to disk/application"),
    (5, "write failed")], ids=["write", "flush"])
def test_a_release_refused_on_a_full_disk_is_staged_once_there_is_room(machine, size, words):
    publish_by_hand(machine, [("x", b"x" * size)])
    machine.run(FILL_DISK)
    full = first_pass(machine)
    assert full.status == f"IDLE - refused: x: {words}"
    assert full.kept == ["client-staging 755", "filling 644", "install-id 644"]
    assert full.requests == asked() + fetched(1)
    machine.run(MAKE_ROOM)
    assert check(machine)[-1] == STAGED
    assert len(machine.read(f"{STATE}/install-id")) == 37


def test_a_pass_that_fails_late_removes_what_another_pass_has_staged(machine):
    machine.publish(release("1.1"))
    requested = machine.misbehave(DOWNLOADS, f"/packages/1.1/{DEB}", "hang")
    restart(machine)
    ask(machine, "CHECK")
    assert requested.wait(60)
    machine.run("rm -r /srv/lab/misbehave/*")  # later requests get the file
    ask(machine, "CHECK")
    machine.wait_for_log(STAGED)
    machine.behave()
    wait_for_passes(machine)
    status, _, why = ask(machine, "STATUS").partition(": ")
    assert status == "READY 1.1 refused"  # an apply then finds no file
    assert why.startswith(f"{DEB}: download failed, ")
    assert machine.log()[-2:] == refused(why)
    assert kept(machine) == NOTHING
