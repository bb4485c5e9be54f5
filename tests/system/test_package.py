"""The client's package: what it starts, restarts, stops, keeps and removes."""

import pytest

from lab.machine import SERVICE
from lab.packing import configure, run_recipe
from lab.releases import package
from lab.service_view import CONFIG, TIMER, units
from lab.update_steps import install_as_service

UP, DOWN = ["active"] * 3, ["inactive"] * 3
OURS = "find / -xdev -name '*vantrell*' ! -path '/var/tmp/*' ! -name '*.log' | sort"
REFUSED = [  # what is done to good trees, what is said
    (":", "this service trusts a development key; configure the build with VANTRELL_RELEASE_KEY_1 "
     "and VANTRELL_RELEASE_KEY_2, and install it into an empty tree."),
    ("echo '#!/bin/sh' >client/usr/bin/vantrell-harbor", "/usr/bin/vantrell-harbor in the client "
     "tree is not an ELF program; put the client's program there."),
    ("ln -sf /bin/true client/usr/bin/vantrell-harbor", "the client tree holds no executable file "
     "usr/bin/vantrell-harbor; put the client there."),
    ("rm -r service/usr/lib/vantrell-harbor", "the service tree lacks /usr/lib/vantrell-harbor/"
     "heal-interrupted-install; install the service into it with prefix /usr."),
]


def test_the_package_starts_and_restarts_the_service_but_not_during_an_apply(bare_machine):
    machine = bare_machine
    before = machine.run(OURS)
    machine.install(package("1.0"))
    first = units(machine)
    assert first.states == UP
    assert first.enabled == ["enabled"] * 3
    assert first.reload_needed == "no"
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
    assert units(machine) == first._replace(states=["active", "inactive", "active"], pid="0")

    machine.run("apt-get remove -y vantrell-harbor")
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
    assert units(machine).states[2] == "active"
    assert units(machine).enabled[2] == "enabled"
    machine.run("apt-get purge -y vantrell-harbor")
    machine.install(package("0.9", "--no-service"))
    machine.install(package("1.0"))
    assert units(machine).states == UP
    machine.run(["systemctl", "disable", "--now", TIMER])
    machine.install(package("1.1"))
    assert units(machine).states == [*UP[:2], "inactive"]
    assert units(machine).enabled == ["enabled", "enabled", "disabled"]


def test_the_recipe_refuses_trees_that_are_not_to_be_installed(tmp_path):
    for damage, sentence in REFUSED:
        result = run_recipe(tmp_path, damage)
        assert result.stderr == f"make-client-package: {sentence}\n", damage
        assert result.returncode == 1, damage
        assert not (tmp_path / "made").exists(), damage


@pytest.mark.parametrize("name, value, words", [
    ("RELEASE_KEY_2", "one.pub", "are the same key"),
    ("RELEASE_KEY_2", "absent.pub", "cannot be read"),
    ("WITNESS_3", "https://A.example.org/else", "Two witnesses are on the host"),
    ("UPDATE_HOST", "updates.vantrell.example", "is an example host"),
], ids=["key", "file", "witness", "host"])
def test_the_build_refuses_values_that_void_the_proof(tmp_path, name, value, words):
    result = configure(tmp_path, **{name: value})
    assert words in result.stderr
    assert result.returncode == 1
