"""The client's package: what it starts, restarts, leaves alone, stops, keeps and takes away."""

import subprocess

from conftest import ROOT, SERVICE

from lab.releases import BUILT, package
from lab.service_view import CONFIG

SOCKET_UNIT = SERVICE.replace(".service", ".socket")
STATE = f"""while systemctl list-jobs --no-legend | grep -q .; do sleep 0.1; done
systemctl is-active {SOCKET_UNIT} {SERVICE}; systemctl show -P NeedDaemonReload {SERVICE}
systemctl show -P InvocationID {SOCKET_UNIT}; systemctl show -P MainPID {SERVICE}"""
UP, STOPPED, DOWN = ["active", "active", "no"], ["active", "inactive", "no"], ["inactive"] * 2
OURS = "find / -xdev -name '*vantrell*' ! -path '/var/tmp/*' ! -name '*.log' | sort"
RECIPE = f"""rm -rf client service && mkdir -p client/usr/bin && cp -r {BUILT}/service .
cp {BUILT}/stand-in-client client/usr/bin/vantrell-harbor
%s
exec {ROOT}/packaging/make-client-package --version 1 --client-tree client \\
  --service-tree service --output made"""
REFUSED = [  # what is done to good trees, what is said
    ("touch service/usr/share/doc/vantrell-harbor/DEVELOPMENT-KEYS",
     "this service trusts development keys; configure the build with VANTRELL_RELEASE_KEY_1 and "
     "VANTRELL_RELEASE_KEY_2, and install it into an empty tree."),
    ("ln -sf /bin/true client/usr/bin/vantrell-harbor", "the client tree holds no executable file "
     "usr/bin/vantrell-harbor; put the client there."),
    ("rm -r service/usr/lib/vantrell-harbor", "the service tree lacks /usr/lib/vantrell-harbor/"
     "heal-interrupted-install; install the service into it with prefix /usr."),
]


def state(machine):
    """Of socket and service, and whether to reload; the socket's start; the service's process."""
    *units, socket, process = machine.run(STATE).splitlines()
    return units, socket, process


def test_the_package_is_like_any_other_but_leaves_an_apply_alone(bare_machine):
    machine = bare_machine
    before = machine.run(OURS)
    machine.install(package("1.0"))
    up, socket, first = state(machine)
    assert up == UP and machine.succeeds(f"systemctl is-enabled {SOCKET_UNIT} {SERVICE}")
    assert not machine.exists(CONFIG) and machine.send("SETRING beta") == "OK"

    machine.install(package("1.1"))
    *unchanged, second = upgraded = state(machine)
    assert unchanged == [UP, socket] and second != first
    machine.run(f"touch -d @1 /usr/lib/systemd/system/{SERVICE} && systemctl daemon-reload")
    machine.push(package("1.2"), "/var/tmp/1.2.deb")
    machine.run("apt-get install -y /var/tmp/1.2.deb", env={"VANTRELL_UPDATE_APPLY": "1"})
    assert (machine.version_of("vantrell-harbor"), state(machine)) == ("1.2", upgraded)
    machine.run(["systemctl", "stop", SERVICE])
    machine.install(package("1.1"), "--allow-downgrades")
    assert state(machine) == (STOPPED, socket, "0")

    machine.run("apt-get remove -y vantrell-harbor")
    assert state(machine)[0][:2] == DOWN and not machine.exists("/run/vantrell")
    assert machine.read(CONFIG) == "Channel=beta\n"
    machine.install(package("1.1"))
    assert state(machine)[0] == UP and machine.read(CONFIG) == "Channel=beta\n"
    machine.run("apt-get purge -y vantrell-harbor")
    assert (state(machine)[0][:2], machine.run(OURS)) == (DOWN, before)

    machine.install(package("0.9", "--no-service"))
    machine.install(package("1.0"))
    assert state(machine)[0] == UP


def test_the_recipe_refuses_what_no_machine_should_get(tmp_path):
    for damage, sentence in REFUSED:
        result = subprocess.run(["sh", "-ec", RECIPE % damage], cwd=tmp_path, text=True,
                                stderr=subprocess.PIPE)
        assert (result.returncode, result.stderr) == (1, f"make-client-package: {sentence}\n")
        assert not (tmp_path / "made").exists()
