"""What the benchmarks share: the built programs, and a lab machine with the service in it."""

import contextlib
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILT = ROOT / "build/bench"
sys.path.insert(0, str(ROOT))

from lab import service_view  # noqa: E402
from lab.client_log import running  # noqa: E402
from lab.log_lines import HELD  # noqa: E402
from lab.machine import Machine, missing_requirements  # noqa: E402
from lab.releases import package  # noqa: E402


def build():
    result = subprocess.run([ROOT / "bench/build.sh"], stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True)
    if result.returncode != 0:
        sys.exit(result.stdout)


@contextlib.contextmanager
def scratch():
    """A folder for files of this run and, as `built`, for its packages and releases."""
    with tempfile.TemporaryDirectory(dir=BUILT, prefix="scratch-") as name:
        folder = pathlib.Path(name)
        (folder / "service").symlink_to(BUILT / "service")
        for program in "stand-in-client", "stand-in-service":
            (folder / program).symlink_to(BUILT / "release/lab/client" / program)
        yield folder


@contextlib.contextmanager
def machine_with_service(built, **options):
    """A booted machine with client 1.0 and the service.

    It trusts all authorities of Debian, as every machine does: a request loads their certificates.
    The machines of the tests trust only that of the lab. The options go to Machine.
    """
    missing = missing_requirements()
    if missing:
        sys.exit(f"{sys.argv[0]}: {missing}")
    with Machine(**options) as machine:
        machine.install(package("1.0", built=built))
        machine.run("sed -i 's/^!//' /etc/ca-certificates.conf && update-ca-certificates")
        yield machine


def push_program(machine, name):
    """Copies a program of build/bench into the machine; returns its path there."""
    machine.push(BUILT / name, f"/usr/local/bin/{name}", 0o755)
    return f"/usr/local/bin/{name}"


def restart(machine):
    """Restarts the service and waits until it is idle; returns its folder in /proc."""
    service_view.restart(machine)
    process = service_view.process_folder(machine)
    wait_until_idle(process)
    return process


def wait_until_idle(process, timeout=600, interval=0.05):
    """Waits until only the lasting threads are left."""
    deadline = time.monotonic() + timeout
    while (threads := int(service_view.field(process, "Threads"))) != service_view.IDLE_THREADS:
        if time.monotonic() > deadline:
            raise TimeoutError(f"the service still has {threads} threads")
        time.sleep(interval)


def processor_seconds(machine, group=None):
    """The processor time that a control group has used so far: the service's, if none is given."""
    group = group or service_view.service_group(machine)
    return int((group / "cpu.stat").read_text().split()[1]) / 1e6


def wire_bytes(machine):
    """What the loopback device has carried so far: each packet once, requests and replies."""
    carried = pathlib.Path(f"/proc/{machine.leader}/net/dev").read_text()
    return int(re.search(r"lo:\s+(\d+)", carried)[1])


def hold_sessions(machine, count):
    """Starts a client that holds so many sessions; returns it."""
    client = running(machine, machine.popen([service_view.CLIENT], stderr=subprocess.DEVNULL))
    for held in range(1, count + 1):
        client.send_signal(signal.SIGUSR2)
        machine.wait_for_log(HELD.format(held))
    return client
