"""The program for operators: what it says and does in each state of a machine."""

import subprocess

from lab.control_program import PROGRAM, control, facts
from lab.held_install import package_lock
from lab.log_lines import RESTORED, UNJUDGED
from lab.machine import SERVICE
from lab.releases import package, publish_by_hand, release
from lab.service_view import COPY, RECORD, SOCKET_UNIT, STATE, digest_of, kept, units
from lab.update_steps import (refusal, request_apply, said, set_window, shut_window, stage,
                              start_client)

NOT_ROOT = f"{PROGRAM}: this command needs root; run it with sudo."
NO_SERVICE = ('the update service is not there (/run/vantrell/update.sock: {}); start it with '
              f'"systemctl start {SOCKET_UNIT} {SERVICE}"')
MUTE = ('the update service does not answer within 20 s; see "vantrell-harbor-updatectl log", and '
        f'restart it with "systemctl restart {SERVICE}"')
STOPPED = [f'{unit} is stopped; start it with "systemctl start {unit}"'
           for unit in (SOCKET_UNIT, SERVICE)]
NAME = "vantrell-harbor_1.0_amd64.deb"
PACKAGE = f"/root/{NAME}"
LOCK = "/run/vantrell-harbor-seed.lock"
GIVE = "; give the package that is installed."
FOREIGN = [  # version, behaviour of its client, what is said
    ("1.1", "stay", f"{PROGRAM}: the file holds version 1.1, but 1.0 is installed{GIVE}"),
    ("1.0", "die-after 9", f"{PROGRAM}: the file is another build of version 1.0{GIVE}"),
]
UNUSABLE = ["", "status x", "check now", "ring prod x", "ring test", "log -x", "id x", "seed",
            "seed /root/x", "support", "support -x", "support ''", "statu"]


def test_status_and_its_exit_status_follow_an_update_from_refusal_to_rollback(machine):
    window = shut_window(machine)
    assert control(machine, "check --wait") == (0, "IDLE - up to date")
    idle = facts(machine)
    assert idle["service"] == {"answers": True, "error": None, "staged": None,
                               "last_check": "up to date", "window": f"SHUT {window}"}
    assert idle["package"] == {"version": "1.0", "state": "installed", "installed": True,
                               "paused": False}
    assert [unit["enabled"] for unit in idle["units"]] == [
        "enabled", "enabled", "enabled", "static", "enabled", "static", "static"]
    assert (idle["last_install"], idle["rollback_copy"], idle["exit_status"]) == (None, "missing",
                                                                                  0)
    seen = facts(machine, "alice")
    assert (seen["journal_readable"], seen["rollback_copy"], seen["exit_status"]) == (
        False, "unknown", 0)

    publish_by_hand(machine, [("a", b"content of a")], "stranger")
    assert control(machine, "check --wait", "alice").status == 1
    refused = facts(machine)
    assert refused["last_refusal"]["result"] == "refused"
    assert refused["attention"] == ["the last check found no usable answer: "
                                    + refused["service"]["last_check"]]
    assert control(machine, "apply").status == 1

    machine.publish(release("1.1"))
    assert control(machine, "check --wait") == (0, "READY 1.1 staged 1.1")
    lines = len(machine.log())
    assert "The window is shut" in control(machine, "apply", "bob").printed
    assert refusal(machine, lines) == f"outside the maintenance window ({window})"
    assert facts(machine)["exit_status"] == 0

    assert control(machine, "pause").status == 0
    assert facts(machine)["package"]["paused"]
    assert control(machine, "status").status == 1
    assert control(machine, "resume", "bob") == (2, NOT_ROOT)
    assert control(machine, "resume").status == 0

    lines = len(machine.log())
    assert control(machine, "apply").status == 0
    machine.wait_for_log(UNJUDGED)
    machine.wait_for_log("listening on", after=lines)
    applied = facts(machine)
    assert applied["last_install"]["result"] == "applied"
    assert (applied["rollback_copy"], applied["exit_status"]) == ("proved", 0)

    start_client(machine, "alice")
    stage(machine, "1.2", "--behaviour", "die-after 0")
    lines = len(machine.log())
    control(machine, "apply")
    said(machine, lines, RESTORED)
    rolled = facts(machine)
    assert rolled["last_install"]["result"] == "rolled-back"
    assert rolled["attention"] == ["the last install failed: "
                                   + RESTORED.removeprefix("[UpdateSvc] ")]


def test_a_rollback_copy_is_made_of_the_installed_package_only(machine):
    machine.push(package("1.0"), PACKAGE)
    machine.run(f"mkdir {LOCK}")
    assert f"opened ({LOCK}: Is a directory)" in control(machine, f"seed {PACKAGE}").printed
    machine.run(f"rmdir {LOCK}")
    for version, behaviour, reason in FOREIGN:
        machine.push(package(version, "--behaviour", behaviour), f"/root/foreign/{NAME}")
        assert control(machine, f"seed /root/foreign/{NAME}").printed == reason
    assert control(machine, f"seed {PACKAGE}", "alice") == (2, NOT_ROOT)
    before = units(machine)
    machine.run(f"mount -t tmpfs -o size=16k,mode=755 tmpfs {STATE}")
    assert "No space left" in control(machine, f"seed {PACKAGE}").printed
    machine.run(f"[ -z \"$(ls -A {STATE})\" ]; umount {STATE}")
    assert units(machine) == before

    machine.run(f"mkdir -p {STATE}/client-rollback; echo old | "
                f"tee {COPY} {STATE}/rollback-candidate.deb; "
                f"systemd-run -p Type=exec --uid=alice flock {STATE} sleep infinity")
    assert control(machine, f"seed {PACKAGE}").status == 0
    assert machine.read(RECORD) == f"{NAME} {digest_of(machine, PACKAGE)}\n"
    assert facts(machine)["rollback_copy"] == "proved"
    after = units(machine)
    assert after == before._replace(socket_start=after.socket_start, pid=after.pid)
    left = {"client-rollback 700", "client-rollback/previous.deb 600", "installed.sha256 644",
            "machine-id 644"}
    assert {*kept(machine)} - {"install-id 644"} == left  # of a first check on a slow machine

    stage(machine, "1.1")
    with package_lock(machine):
        request_apply(machine)
        machine.run("until pidof apt-get; do sleep 0.05; done")
        seed = machine.popen([PROGRAM, "seed", PACKAGE], stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT, text=True)
        assert seed.stdout.readline().startswith("Stopping the service")
    with seed:
        assert "holds version 1.0, but 1.1 is installed" in seed.stdout.read()
    assert machine.read(RECORD).startswith("vantrell-harbor_1.1_amd64.deb ")


def test_a_support_archive_names_no_machine(machine):
    control(machine, "check --wait")
    machine.run(f"echo | tee {STATE}/$(printf 'a\\033[2Jb')")
    assert control(machine, "support /root/facts.tgz").status == 0
    assert control(machine, "support /root/facts.tgz").status == 2
    held = machine.run("umask 7; tar -tzf /root/facts.tgz; tar -xzOf /root/facts.tgz; ls /tmp")
    for part in ("status.json", '"answers":true', "listening on", "install ok installed",
                 "ExecStart=", " install-id", r" a\033[2Jb"):
        assert part in held, part
    for secret in (f"{STATE}/install-id", "/etc/machine-id"):
        assert machine.read(secret).strip() not in held, secret
    assert "vantrell-support." not in held


def test_every_command_ends_with_a_sentence_where_the_service_cannot_help(machine):
    for words in UNUSABLE:
        answer = control(machine, words)
        assert (answer.status, answer.printed.count("\n")) == (64, 0), words
    assert control(machine, "ring beta", "alice").status == 1
    with machine.popen(["timeout", "60", PROGRAM, "log", "-f"], stdout=subprocess.PIPE,
                       text=True) as following:
        assert any("listening on" in line for line in following.stdout)
        assert control(machine, "ring beta").status == 0
        assert any("ring set to beta" in line for line in following.stdout)
        following.terminate()
    assert control(machine, "ring", "alice") == (0, "beta")
    set_window(machine, ("00:00", "00:00"))
    assert control(machine, "window") == (0, "OPEN 00:00-00:00 local")
    assert control(machine, "id", "alice") == (2, NOT_ROOT)
    control(machine, "check --wait")
    assert control(machine, "id").printed in machine.read(f"{STATE}/install-id")
    assert "listening on" in control(machine, "log").printed
    assert control(machine, "ring >/dev/full") == (
        2, f"{PROGRAM}: the standard output cannot be written.")
    with machine.popen(["timeout", "60", PROGRAM, "watch"], user="alice", stdout=subprocess.PIPE,
                       text=True) as watching:
        assert watching.stdout.readline() == "service        answers\n"
        assert watching.stdout.readline().startswith("last check     ")
        watching.terminate()

    machine.run(["systemctl", "kill", "--signal=STOP", SERVICE])
    assert control(machine, "window") == (2, f"{PROGRAM}: {MUTE}.")
    machine.run(f"systemctl kill --signal=CONT {SERVICE}; systemctl stop {SOCKET_UNIT} {SERVICE}")
    for words in ("check", "check --wait", "apply", "ring prod"):
        assert control(machine, words) == (
            2, f"{PROGRAM}: {NO_SERVICE.format('Connection refused')}."), words
    stopped = facts(machine)
    assert stopped["service"]["error"] == NO_SERVICE.format("Connection refused")
    assert (stopped["attention"], stopped["exit_status"]) == (STOPPED, 2)
