"""The client's package: what it starts, restarts, stops, keeps and removes, and its publishing.

The tests of the package recipe, of the build and of publish-release need no machine.
"""

import json
import os
import subprocess

import pytest

from lab.machine import SERVICE
from lab.packing import (command_blocks, configure, make_keys, make_package_from_sources,
                         make_publisher_files, publish, publish_all, run_as_operator, run_recipe,
                         write_deployment)
from lab.releases import BUILT, ROOT, manifest_entries, package, signed_digest
from lab.service_view import CONFIG, TIMER, VERIFY_UNITS, WINDOW, WINDOW_TIMER, units
from lab.update_steps import install_as_service

UP, DOWN = ["active"] * 4, ["inactive"] * 4
OURS = "find / -xdev -name '*vantrell*' ! -path '/var/tmp/*' ! -name '*.log' | sort"
REFUSED_TREES = [  # what is done to good trees, what is said
    (":", "the service trusts a development key; configure the build with VANTRELL_DEPLOYMENT, and "
     "install it into an empty tree."),
    ("echo '#!/bin/sh' >client/usr/bin/vantrell-harbor", "/usr/bin/vantrell-harbor in the client "
     "tree is not an ELF program for amd64; put the client's program there."),
    ("ln -sf /bin/true client/usr/bin/vantrell-harbor", "the client tree holds no executable file "
     "usr/bin/vantrell-harbor; put the client there."),
    ("rm -r service/usr/lib/vantrell-harbor", "the service tree lacks /usr/lib/vantrell-harbor/"
     "heal-interrupted-install; install the service into it with prefix /usr."),
    ("touch service/usr/sbin/old", "the service tree holds /usr/sbin/old, which is not a file of "
     "this service; install it into an empty tree."),
    ("mkdir -p client/lib/systemd", "the client tree holds /lib; put files of the client below "
     "/etc, /opt, /usr and /var only."),
    ("mkdir -p client/etc/x/vantrell-harbor-updated.service.d", "the client tree holds "
     "/etc/x/vantrell-harbor-updated.service.d, a name of the service; remove it."),
    ("ln -s /var/tmp client/usr/sbin", "/usr/sbin in the client tree is not a directory; make it "
     "one, or remove it."),
    ("install -D /dev/null client/usr/share/doc/vantrell-harbor/copyright", "the client tree holds "
     "/usr/share/doc/vantrell-harbor/copyright, which this program puts into the package; remove "
     "it."),
    ("mkdir -p client/var/lib/vantrell-harbor", "the client tree holds /var/lib/vantrell-harbor, "
     "which the service makes on the machine; remove it."),
    ("ln -s ../../home/a client/usr/x", "the link /usr/x in the client tree leads to /home/a, "
     "where a client has no files; remove it."),
    ("mkfifo client/usr/x", "/usr/x in the client tree is not a file, a directory or a link; "
     "remove it."),
    ("touch 'client/usr/a\nb'", "the client tree holds $'/usr/a\\nb', a name with a control "
     "character; rename it."),
    ("chmod u+s client/usr/bin/vantrell-harbor", "/usr/bin/vantrell-harbor in the client tree has "
     "a set-id bit; remove the bit, or name the file with --set-id."),
    ("mkdir -p client/usr/share/applications; echo Exec=vantrell-harbor "
     ">client/usr/share/applications/a+b.desktop", "the desktop file a+b.desktop starts the "
     "client; give it a name of letters, digits, \"-\", \"_\" and \".\"."),
    ("mv client real; ln -s real client; touch real/x", "the client tree holds /x; put files of "
     "the client below /etc, /opt, /usr and /var only."),
]
REFUSED_TEXTS = [  # option, its value, a line that makes what it names, what is said
    ("--maintainer", "", ":", 'no maintainer was given; give "NAME <ADDRESS>" with --maintainer.'),
    ("--maintainer", "A <a@b.invalid>\nEssential: yes", ":", "the maintainer $'A <a@b.invalid>\\n"
     "Essential: yes' is not one line \"NAME <ADDRESS>\" without a comma; correct it."),
    ("--maintainer", "A <a@b.example>", ":", "the maintainer A <a@b.example> has an example "
     "address; give one that is read."),
    ("--depends", "a\nEssential: yes", ":", "the dependencies hold a control character; give one "
     "line with --depends."),
    ("--license", "it", "printf '\\n \\n' >it", "the license it is empty; write it."),
    ("--license", "it", "printf 'a\\0b' >it", "the license it is not plain text in UTF-8 with "
     "line feeds only; convert it."),
    ("--description", "it", "printf 'A client\\n.\\n' >it", "a line of the description it begins "
     "with a dot; change it."),
    ("--changelog", "it", "echo 'vantrell-harbor (0.9) stable' >it", "the first line of the "
     "changelog it does not begin with \"vantrell-harbor (1) \"; add an entry for this version at "
     "the top."),
    ("--hooks", "hooks", "mkdir -p hooks; echo '#!/bin/sh' >'hooks/preinst postinst'", "hooks/"
     "preinst\\ postinst is not a hook; hooks are named preinst postinst prerm postrm."),
    ("--hooks", "hooks", "rm hooks/*; printf '#!/bin/sh\\r\\n' >hooks/prerm", "the hook "
     "hooks/prerm is not plain text in UTF-8 with line feeds only; convert it."),
    ("--hooks", "hooks", "echo '#!/bin/bash' >hooks/prerm", "the hook hooks/prerm does not begin "
     "with the line #!/bin/sh; write it for sh."),
]


def test_the_package_starts_and_restarts_the_service_but_not_during_an_apply(bare_machine):
    machine = bare_machine
    before = machine.run(OURS)
    machine.install(package("1.0"))
    first = units(machine)
    assert first.states == UP
    assert first.enabled == ["enabled"] * 4
    assert first.reload_needed == "no"
    assert machine.run(VERIFY_UNITS) == ""
    assert not machine.exists(CONFIG)
    assert machine.send("SETRING beta") == "OK"

    machine.install(package("1.1"))
    upgraded = units(machine)
    assert upgraded == first._replace(pid=upgraded.pid)
    assert upgraded.pid != first.pid
    machine.run(f"touch -d @1 /usr/lib/systemd/system/{SERVICE} && systemctl daemon-reload")
    install_as_service(machine, package("1.2"))
    assert machine.version_of("vantrell-harbor") == "1.2"
    assert units(machine) == upgraded
    machine.run(["systemctl", "stop", SERVICE])
    machine.install(package("1.1"), "--allow-downgrades")
    assert units(machine) == first._replace(states=["active", "inactive", *UP[2:]], pid="0")

    machine.run(f"systemctl start {WINDOW}; apt-get remove -y vantrell-harbor")
    assert units(machine).states == DOWN
    assert not machine.exists("/run/vantrell")
    machine.install(package("1.1"))
    assert units(machine).states == UP
    assert units(machine).enabled == first.enabled
    assert machine.read(CONFIG) == "Channel=beta\n"
    machine.run("apt-get purge -y vantrell-harbor")
    assert units(machine).states == DOWN
    assert machine.run(OURS) == before


def test_an_upgrade_starts_what_is_new_and_leaves_a_disabled_timer(bare_machine):
    machine = bare_machine
    machine.install(package("0.9", "--no-service"))
    install_as_service(machine, package("1.0"))  # by a service that had no timer yet
    assert units(machine).states[2:] == UP[2:]
    assert units(machine).enabled[2:] == ["enabled"] * 2
    machine.run("apt-get purge -y vantrell-harbor")
    machine.install(package("0.9", "--no-service"))
    machine.install(package("1.0"))
    assert units(machine).states == UP
    machine.run(["systemctl", "disable", "--now", TIMER, WINDOW_TIMER])
    machine.install(package("1.1"))
    assert units(machine).states == [*UP[:2], *DOWN[2:]]
    assert units(machine).enabled == ["enabled"] * 2 + ["disabled"] * 2


def test_the_recipe_refuses_trees_that_are_not_to_be_installed(tmp_path):
    for damage, sentence in REFUSED_TREES:
        result = run_recipe(tmp_path, damage)
        assert result.stderr == f"make-client-package: {sentence}\n", damage
        assert result.returncode == 1, damage
        assert not (tmp_path / "made").exists(), damage


def test_the_recipe_refuses_texts_that_change_the_package_in_other_ways(tmp_path):
    for option, value, damage, sentence in REFUSED_TEXTS:
        result = run_recipe(tmp_path, damage, option, value)
        assert result.stderr == f"make-client-package: {sentence}\n", sentence
        assert not (tmp_path / "made").exists(), sentence


def test_a_package_depends_neither_on_the_time_nor_on_the_place_of_its_build(tmp_path):
    made = []
    for year, umask in [("2001", "077"), ("2038", "002")]:
        folder = tmp_path / year
        folder.mkdir()
        other = (f"umask {umask}; find . -exec touch -d {year}-01-01 {{}} +; chmod g+s client/usr; "
                 "export SOURCE_DATE_EPOCH=1700000000")
        run_recipe(folder, other, "--development").check_returncode()
        made.append(next(folder.glob("made/*.deb")).read_bytes())
    assert made[0] == made[1]
    assert bytes(ROOT) not in BUILT.joinpath("build/vantrell-harbor-updated").read_bytes()


def test_one_command_makes_of_the_sources_a_package_that_lintian_accepts(tmp_path):
    deb = make_package_from_sources(tmp_path)
    lintian = subprocess.run(["lintian", "--allow-root", "--pedantic", deb], stdout=subprocess.PIPE)
    assert lintian.stdout == b""

    subprocess.run(["dpkg-deb", "--raw-extract", deb, tmp_path / "root"], check=True)
    for program in ("sbin/vantrell-harbor-updated", "bin/vantrell-harbor-updatectl"):
        built = BUILT.joinpath("service/usr", program).read_bytes()
        assert (tmp_path / "root/usr" / program).read_bytes() == built, program
    control = (tmp_path / "root/DEBIAN/control").read_text()
    assert control.endswith("\nDescription: Stand-in for the client\n"
                            " For the lab.\n .\n It is not distributed.\n")
    # The service's own parts do nothing in these steps.
    for script, step, printed in [("postinst", "abort-upgrade", "hook abort-upgrade\n"),
                                  ("prerm", "remove", "hook remove\n"), ("prerm", "upgrade", "")]:
        result = subprocess.run(["sh", tmp_path / "root/DEBIAN" / script, step], text=True,
                                env={**os.environ, "VANTRELL_UPDATE_APPLY": "1"},
                                stdout=subprocess.PIPE, check=True)
        assert result.stdout == printed, (script, step)


REFUSED_VALUES = [  # what is said
    ("RELEASE_KEY_2", "key1.pub", "are the same key"),
    ("RELEASE_KEY_2", "absent.pub", "cannot be read"),
    ("WITNESS_3", "https://me@Downloads.vantrell.invalid.:443/a", "Two witnesses are on"),
    ("UPDATE_HOST", "updates.vantrell.EXAMPLE.", "is an example host"),
    ("WITNESS_2", "", "does not give a value of a deployment"),
]


def test_the_build_refuses_values_that_void_the_proof_in_a_used_folder_too(tmp_path):
    for name, value, words in REFUSED_VALUES:
        result = configure(tmp_path, **{name: value})
        assert words in " ".join(result.stderr.split()), value
        assert result.returncode == 1, value


REFUSED_RELEASES = [  # options and files, what is said
    ("good.deb --version 1/1", 'the version "1/1" holds characters that do not pass unchanged '),
    ("good.deb --channel Prod", '"Prod" is not a channel that machines ask for'),
    ("good.deb --key short.pem", "the key short.pem is not an RSA-2048 key with the usual"),
    ("good.deb /etc/x=notes", 'the name "/etc/x" escapes the install directory of the machines'),
    ("good.deb a/../../x=notes", 'the name "a/../../x" escapes the install directory'),
    ("notes", 'no name ends in ".deb"'),
    ("good.deb 2.deb=good.deb", '2 names end in ".deb"'),
    ("cut.deb", "cut.deb is damaged"),
    ("P.deb", 'P.deb says "Package: x, Version: 1.1, Architecture: amd64" and the release'),
    ("previous.deb", 'previous.deb says "Package: vantrell-harbor, Version: 1, Architecture: '),
    ("A.deb", 'A.deb says "Package: vantrell-harbor, Version: 1.1, Architecture: all" and '),
    ("conflicts.deb", 'conflicts.deb says "Conflicts: systemd", which removes or overwrites other'),
    ("no-client.deb", "no-client.deb holds no amd64 program /usr/bin/vantrell-harbor, so machines"),
    ("no-service.deb", "no-service.deb holds no amd64 program /usr/sbin/vantrell-harbor-updated"),
    ("arm64.deb", "arm64.deb holds no amd64 program /usr/sbin/vantrell-harbor-updated, so"),
    ("no-unit.deb", "no-unit.deb holds no /usr/lib/systemd/system/vantrell-harbor-updated.service"),
    ("good.deb --key key3.pem", "the service in good.deb does not trust the key that signs, so"),
    ("good.deb --component client-linux", 'the service in good.deb does not ask for the component'),
    ("good.deb --deployment clots.conf", "the service does not ask https://clots.vantrell."),
    ("good.deb --base-url https://x.example/", 'the base URL "https://x.example" is on an example'),
    ("good.deb --previous good.deb", "1.1 is not newer than 1.1, the version of good.deb"),
    ("good.deb --previous other-keys.deb", "the service in other-keys.deb does not trust the key"),
]


@pytest.fixture(scope="module")
def publisher_files(tmp_path_factory):
    folder = tmp_path_factory.mktemp("publisher")
    make_publisher_files(folder)
    return folder


def test_a_release_that_ends_updates_or_that_clients_refuse_is_not_published(publisher_files):
    before = sorted(os.listdir(publisher_files))
    for arguments, sentence in REFUSED_RELEASES:
        result = publish(publisher_files, *arguments.split())
        assert result.stderr.startswith(f"publish-release: {sentence}"), arguments
        assert result.returncode == 1, arguments
        assert sorted(os.listdir(publisher_files)) == before, arguments


def test_new_dependencies_are_told_and_do_not_prevent_a_release(publisher_files, tmp_path):
    result = publish(publisher_files, "good.deb", "--previous", "previous.deb", "--output",
                     tmp_path / "tree")
    assert result.stderr.startswith("publish-release: warning: the dependencies differ from those")
    assert result.stderr.endswith("\n< foo\n")
    assert result.returncode == 0


def test_options_accept_what_is_refused_without_them(publisher_files, tmp_path):
    result = publish(publisher_files, "conflicts.deb", "--allow-conflicts", "--previous",
                     "good.deb", "--allow-downgrade", "--git-commit", "c0ffee",
                     "--driver-fingerprint", "driver 7", "--output", tmp_path / "tree")
    assert (result.returncode, result.stderr) == (0, "")
    offer = json.loads((tmp_path / "tree/offer.json").read_text())
    assert (offer["git_commit"], offer["driver_fingerprint"]) == ("c0ffee", "driver 7")


def test_the_published_digest_is_that_of_a_second_computation(publisher_files, tmp_path):
    # The signed text is sorted by whole lines, in which the ":" after a name is compared too.
    files = {"b.deb": (publisher_files / "good.deb").read_bytes(), "a": b"", "a.b": b"1",
             "a-": b"2", "A/z": bytes(range(256))}
    made = publish_all(publisher_files, files, tmp_path / "tree")
    entries = manifest_entries(files.items(), files)
    digest = signed_digest(entries)
    assert json.loads(made.pop("offer.json")) == {
        "version": "1.1", "git_commit": "", "driver_fingerprint": "", "files": entries}
    block = f"vantrell-release-v1\n1.1\nclient-linux-amd64 {digest}\n".encode()
    signature = "witness-1/prod/1.1.release.sig"
    facts = {"release.block": block, "release.sig": made[signature],
             "client-linux-amd64.sha256": f"{digest}\n".encode()}
    assert made == {f"downloads/packages/1.1/{name}": data for name, data in files.items()} | {
        f"witness-{n}/prod/1.1.{fact}": data for n in (1, 2, 3) for fact, data in facts.items()}
    subprocess.run(["openssl", "dgst", "-sha256", "-verify", publisher_files / "key1.pub",
                    "-signature", tmp_path / "tree" / signature], input=block, check=True)


def test_the_commands_for_keys_make_releases_and_refuse_others(tmp_path):
    write_deployment(tmp_path)
    (tmp_path / "phrase").write_text("a pass phrase\n")
    (tmp_path / "publisher").symlink_to(ROOT / "publisher")
    for block in command_blocks("Keys"):
        result = run_as_operator(tmp_path, block)
        assert result.returncode == 0, result.stderr
    assert "does not trust the key that signs" in result.stderr  # what the last block wants
    for version, key in [("1.4.0", "key1"), ("1.5.0", "key2")]:
        facts = tmp_path / f"release-{version}/witness-3/prod/{version}.release"
        subprocess.run(["openssl", "dgst", "-sha256", "-verify", tmp_path / f"{key}.pub",
                        "-signature", f"{facts}.sig", f"{facts}.block"], check=True)

    complete = "publisher/publish-release --prepared prepared-1.5.0 --output x --signature"
    for command, words in [
            (f"{complete} 1.4.0.sig", "1.4.0.sig is not the signature of the release block by the"),
            (f"echo >prepared-1.5.0/release/downloads/packages/1.5.0/new; {complete} 1.5.0.sig",
             "the files in prepared-1.5.0 differ from those that were prepared"),
            (f"{complete} 1.5.0.sig --previous a.deb",
             "--prepared was given with what --prepare has fixed")]:
        result = run_as_operator(tmp_path, command)
        assert f"publish-release: {words}" in result.stderr
        assert result.returncode == 1
        assert not (tmp_path / "x").exists()


def test_the_example_by_hand_gives_what_the_page_shows(tmp_path):
    make_keys(tmp_path)
    lines = command_blocks("By hand: a complete example")[0].splitlines()
    shown = [line[4:] for line in lines if not line.startswith("    $ ")]
    (tmp_path / "files").write_text("".join(f"{line}\n" for line in shown if line.count(":") == 2))
    commands = [line[6:] for line in lines if line.startswith("    $ ")]
    result = run_as_operator(tmp_path, "\n".join(commands))
    assert result.stdout.splitlines() == shown
