"""The client's package: what it starts, restarts, stops, keeps and removes."""

import subprocess

import pytest
from conftest import ROOT

from lab.machine import SERVICE
from lab.packing import run_recipe
from lab.releases import package
from lab.service_view import CONFIG, SOCKET_UNIT, units

UP, DOWN = ["active", "active"], ["inactive", "inactive"]
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
    assert first.reload_needed == "no"
    assert machine.succeeds(f"systemctl is-enabled {SOCKET_UNIT} {SERVICE}")
    assert not machine.exists(CONFIG)
    assert machine.send("SETRING beta") == "OK"

    machine.install(package("1.1"))
    upgraded = units(machine)
    assert upgraded == first._replace(pid=upgraded.pid)
    assert upgraded.pid != first.pid
    machine.run(f"touch -d @1 /usr/lib/systemd/system/{SERVICE} && systemctl daemon-reload")
    machine.push(package("1.2"), "/var/tmp/1.2.deb")
    machine.run("apt-get install -y /var/tmp/1.2.deb", env={"VANTRELL_UPDATE_APPLY": "1"})
    assert machine.version_of("vantrell-harbor") == "1.2"
    assert units(machine) == upgraded
    machine.run(["systemctl", "stop", SERVICE])
    machine.install(package("1.1"), "--allow-downgrades")
    assert units(machine) == first._replace(states=["active", "inactive"], pid="0")

    machine.run("apt-get remove -y vantrell-harbor")
    assert units(machine).states == DOWN
    assert not machine.exists("/run/vantrell")
    machine.install(package("1.1"))
    assert units(machine).states == UP
    assert machine.read(CONFIG) == "Channel=beta\n"
    machine.run("apt-get purge -y vantrell-harbor")
    assert units(machine).states == DOWN
    assert machine.run(OURS) == before

    machine.install(package("0.9", "--no-service"))
    machine.install(package("1.0"))
    assert units(machine).states == UP


def test_the_recipe_refuses_trees_that_are_not_to_be_installed(tmp_path):
    for damage, sentence in REFUSED:
        result = run_recipe(tmp_path, damage)
        assert result.stderr == f"make-client-package: {sentence}\n", damage
        assert result.returncode == 1, damage
        assert not (tmp_path / "made").exists(), damage


@pytest.mark.parametrize("change, words", [
    ({"RELEASE_KEY_2": "one.pub"}, "are the same key"),
    ({"RELEASE_KEY_2": "absent.pub"}, "cannot be read"),
    ({"WITNESS_3": "https://A.example.org/else"}, "Two witnesses are on the host"),
    ({"UPDATE_HOST": "updates.vantrell.example"}, "is an example host"),
], ids=["key", "file", "witness", "host"])
def test_the_build_refuses_values_that_void_the_proof(tmp_path, change, words):
    for key in ("one", "two"):
        subprocess.run(f"openssl genrsa 2048 | openssl rsa -pubout -out {key}.pub", shell=True,
                       cwd=tmp_path, check=True, capture_output=True)
    values = {"RELEASE_KEY_1": "one.pub", "RELEASE_KEY_2": "two.pub",
              "UPDATE_HOST": "updates.example.org", "WITNESS_1": "https://a.example.org",
              "WITNESS_2": "https://b.example.org", "WITNESS_3": "https://c.example.org", **change}
    options = [f"-DVANTRELL_{name}={tmp_path / value if 'KEY' in name else value}"
               for name, value in values.items()]
    result = subprocess.run(["cmake", "-G", "Ninja", "-S", ROOT, "-B", "build", *options],
                            cwd=tmp_path, text=True, capture_output=True)
    assert words in result.stderr
    assert result.returncode == 1
