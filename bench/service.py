"""What the benchmarks share: the built programs, and a lab machine with the service in it."""

import contextlib
import pathlib
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILT = ROOT / "build/bench"
sys.path.insert(0, str(ROOT))

from lab.machine import SERVICE, SOCKET, Machine, missing_requirements  # noqa: E402, F401

IDLE_THREADS = 2  # the main one and the background one


def build():
    result = subprocess.run([ROOT / "bench/build.sh"], stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True)
    if result.returncode != 0:
        sys.exit(result.stdout)


@contextlib.contextmanager
def scratch():
    with tempfile.TemporaryDirectory(dir=BUILT, prefix="scratch-") as folder:
        yield pathlib.Path(folder)


def package(folder, version, ballast=0):
    """Packs client `version` with `ballast` MiB of random bytes in it."""
    printed = subprocess.run(
        [ROOT / "lab/client/make-package", "--version", version, "--ballast", str(ballast),
         "--client", BUILT / "release/lab/client/stand-in-client",
         "--service-tree", BUILT / "service", "--output", folder / f"package-{version}"],
        check=True, stdout=subprocess.PIPE, text=True).stdout
    return printed.splitlines()[-1]


def release(folder, version, ballast=0):
    """A published release of package(), for Machine.publish."""
    tree = folder / f"release-{version}"
    subprocess.run([ROOT / "publisher/publish-release", "--version", version, "--channel", "prod",
                    "--key", BUILT / "keys/release-1.pem", "--output", tree,
                    package(folder, version, ballast)], check=True, stdout=subprocess.DEVNULL)
    return tree


@contextlib.contextmanager
def machine_with_service(folder):
    """A booted machine with client 1.0 and the service."""
    missing = missing_requirements()
    if missing:
        sys.exit(f"{sys.argv[0]}: {missing}")
    with Machine() as machine:
        machine.install(package(folder, "1.0"))
        yield machine


def push_program(machine, name):
    """Brings a program of build/bench into the machine; its path there."""
    machine.push(BUILT / name, f"/usr/local/bin/{name}", 0o755)
    return f"/usr/local/bin/{name}"


def restart(machine):
    """Starts the service anew; what the kernel tells about it is read from the folder returned."""
    machine.run(["systemctl", "restart", SERVICE])
    pid = machine.run(["systemctl", "show", "-P", "MainPID", SERVICE]).strip()
    # Through the machine's own /proc and without entering it, which would cost processor time.
    process = pathlib.Path(f"/proc/{machine.leader}/root/proc/{pid}")
    wait_until_idle(process)
    return process


def number(process, field):
    """A number out of /proc/PID/status; sizes are in KiB."""
    for line in (process / "status").read_text().splitlines():
        if line.startswith(field + ":"):
            return int(line.split()[1])
    raise KeyError(field)


def mebibytes(process, field):
    return number(process, field) / 1024


def wait_until_idle(process, timeout=600):
    """Waits until no thread but the two lasting ones is left; the largest number seen."""
    deadline = time.monotonic() + timeout
    most = 0
    while True:
        threads = number(process, "Threads")
        most = max(most, threads)
        if threads == IDLE_THREADS:
            return most
        if time.monotonic() > deadline:
            raise TimeoutError(f"the service still has {threads} threads")
        time.sleep(0.05)
