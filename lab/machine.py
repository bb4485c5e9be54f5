"""A throw-away Debian machine. It boots in half a second and leaves nothing on the host."""

import fcntl
import io
import os
import pathlib
import secrets
import select
import shutil
import signal
import socket
import struct
import subprocess
import tarfile
import tempfile
import time

from lab.outside_world import OutsideWorld
from lab.process import Process
from lab.session import Session

LAB = pathlib.Path(__file__).resolve().parent
SERVICE = "vantrell-harbor-updated.service"
SOCKET = "/run/vantrell/update.sock"
NAME_PREFIX = "vantrell-lab-"
BOOT_LIMIT = 180  # seconds, for a host with many machines on few cores
# ext4's request to stop all reading and writing at once, without writing its journal.
SHUTDOWN, NO_JOURNAL = 0x8004587D, struct.pack("I", 2)
CREDENTIALS = struct.Struct("iII")  # the kernel's struct ucred
CREDENTIALS_SPACE = socket.CMSG_SPACE(CREDENTIALS.size)
# The environment of every process, unless the caller adds to it. Nothing comes from the host's.
BASE_ENVIRONMENT = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                    "LANG": "C.UTF-8"}


def missing_requirements():
    """One sentence on why no machine can run here; empty if one can."""
    if os.geteuid() != 0:
        return "the lab machine needs root"
    for program in ("systemd-nspawn", "mmdebstrap", "unshare", "nsenter", "setpriv", "g++"):
        if not shutil.which(program):
            return f"the lab machine needs the program {program}"
    if not os.path.exists("/usr/include/security/pam_appl.h"):
        return "the lab machine needs the header files of PAM (libpam0g-dev)"
    trial = ("mount -t cgroup2 lab /sys/fs/cgroup && d=$(mktemp -d /sys/fs/cgroup/trial.XXXXXX) && "
             "rmdir $d && mount -t overlay -o lowerdir=/bin:/sbin lab /mnt")
    result = subprocess.run(["unshare", "--mount", "--pid", "--fork", "sh", "-ec", trial],
                            capture_output=True, text=True)
    if result.returncode != 0:
        return "the lab machine needs namespaces, cgroup2 and overlayfs: " + result.stderr.strip()
    return ""


def image_path():
    """Path of the image; makes it if none exists for the present recipe."""
    made = subprocess.run([LAB / "image.sh"], stdout=subprocess.PIPE, text=True)
    if made.returncode != 0:
        raise RuntimeError(made.stdout.strip())
    return made.stdout.strip()


def _remove_leftovers():
    """Removes empty folders and control groups of runs whose processes were all killed."""
    for folder in pathlib.Path(tempfile.gettempdir()).glob(NAME_PREFIX + "*"):
        try:
            status = folder.lstat()
            if status.st_uid != 0 or time.time() - status.st_mtime < 60:
                continue  # another run may be making it, and has not locked it yet
            with open(folder / "lock") as lock:
                fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
                subprocess.run(["unshare", "--mount", "sh", "-c",
                                'mount -t cgroup2 lab /sys/fs/cgroup; '
                                'find "/sys/fs/cgroup/$1" -depth -type d -exec rmdir {} +',
                                "sh", folder.name], stderr=subprocess.DEVNULL)
                shutil.rmtree(folder)
        except OSError:
            continue  # in use, or removed by another run


def _readable_by_all(entry):
    entry.uid = entry.gid = 0
    entry.uname = entry.gname = "root"
    entry.mode = 0o755 if entry.mode & 0o100 else 0o644
    return entry


class Machine(OutsideWorld):
    """One booted machine, for use in a with statement. Several may run at the same time.

    `name` is unique on the host. `boot_seconds` is the duration of the boot. `leader` is the pid
    of the machine's process 1 as the host sees it. OutsideWorld is the network of the machine. The
    disk is in memory, or with `durable` in a file: only then can the power be cut. `changes` is
    a folder with files that replace or join those of the image.
    """

    def __init__(self, changes=None, durable=False):
        self._changes = changes
        self._durable = durable
        self._booted_by = None  # pid of the systemd-nspawn that said so

    def __enter__(self):
        _remove_leftovers()
        started = time.monotonic()
        self._image = image_path()
        self.name = NAME_PREFIX + secrets.token_hex(4)
        self._folder = os.path.join(tempfile.gettempdir(), self.name)
        os.mkdir(self._folder, 0o700)
        self._console = tempfile.TemporaryFile()
        try:
            self._boot()
        except BaseException:
            self.close()
            raise
        self.boot_seconds = time.monotonic() - started
        return self

    def __exit__(self, *_):
        self.close()

    def _boot(self):
        with self._notify_socket() as notify:
            # Only the child keeps the lock: it lives as long as the machine.
            with open(self._folder + "/lock", "w") as lock:
                fcntl.flock(lock, fcntl.LOCK_EX)
                disk = [self._folder + "/disk.image"] if self._durable else []
                self._holder = subprocess.Popen(
                    ["unshare", "--mount", "--propagation", "private",
                     "sh", LAB / "hold-machine.sh", self._image, self._folder,
                     self._changes or "", *disk],
                    stdin=subprocess.PIPE, stdout=self._console, stderr=self._console,
                    pass_fds=[lock.fileno()], start_new_session=True)
            self._enter(notify)

    def cut_power(self):
        """Ends a durable machine and boots it again: what was not written to its disk is lost."""
        with self._notify_socket() as notify:
            pathlib.Path(self._folder, "again").touch()
            disk = os.open(f"/proc/{self._holder.pid}/root{self._folder}/disk", os.O_RDONLY)
            fcntl.ioctl(disk, SHUTDOWN, NO_JOURNAL)
            os.close(disk)
            self.close_outside_world()
            self._messages.close()
            os.kill(self.leader, signal.SIGKILL)
            self._enter(notify)

    def _notify_socket(self):
        """Where the machine says that it has booted."""
        path = pathlib.Path(self._folder, "notify")
        path.unlink(missing_ok=True)
        notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        notify.setsockopt(socket.SOL_SOCKET, socket.SO_PASSCRED, 1)
        notify.bind(str(path))
        return notify

    def _enter(self, notify):
        self._wait_until_booted(notify)
        groups = pathlib.Path(f"/proc/{self._holder.pid}/root/sys/fs/cgroup/{self.name}/payload")
        self.leader = int((groups / "init.scope/cgroup.procs").read_text().split()[0])
        # Holds the processes that belong to no unit. The machine's manager cannot see it.
        self.entrance = groups / "lab"
        self.entrance.mkdir()
        self._messages = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._messages.bind(str(self.on_host("/run/systemd/journal/syslog")))
        self.open_outside_world()

    def _wait_until_booted(self, notify):
        ended = os.pidfd_open(self._holder.pid)
        deadline = time.monotonic() + BOOT_LIMIT
        try:
            while True:
                ready, _, _ = select.select([notify, ended], [], [], deadline - time.monotonic())
                if notify in ready:
                    message, (credentials, *_), *_ = notify.recvmsg(4096, CREDENTIALS_SPACE)
                    sender, *_ = CREDENTIALS.unpack(credentials[2])
                    # Before a power cut, systemd says READY=1 after each reload, too.
                    if b"READY=1" in message.split(b"\n") and sender != self._booted_by:
                        self._booted_by = sender
                        return
                if not ready or ended in ready:
                    self._console.seek(0)
                    console = self._console.read().decode(errors="replace")
                    raise RuntimeError("the machine did not boot:\n" + console[-4000:])
        finally:
            os.close(ended)

    def close(self):
        """Ends the machine at once, like a power cut. May be called twice."""
        self.close_outside_world()
        if hasattr(self, "_messages"):
            self._messages.close()
        if hasattr(self, "_holder"):
            self._holder.stdin.close()
            self._holder.wait()
        shutil.rmtree(self._folder, ignore_errors=True)
        self._console.close()

    # Processes

    def popen(self, command, user=None, env=None, group=None, **options):
        """Starts a list of arguments or a shell line; returns a Process.

        It ends with this program. It belongs to no unit and no session, unless `group` names a
        control group of the machine. `user` is the owner. `env` is added to BASE_ENVIRONMENT.
        `options` go to Popen.
        """
        return Process(self, command, user, {**BASE_ENVIRONMENT, **(env or {})}, group, **options)

    def run(self, command, user=None, env=None, input=None, check=True, timeout=120, group=None,
            binary=False):
        """Runs a command to its end and returns what it printed, both streams together.

        A failure raises CalledProcessError; with check=False the output is returned anyway.
        The output is text, with surrogates for bytes that are not UTF-8. `binary` returns bytes.
        """
        data = input.encode() if isinstance(input, str) else input
        with self.popen(command, user, env, group, stdout=subprocess.PIPE,
                        stdin=subprocess.DEVNULL if data is None else subprocess.PIPE,
                        stderr=subprocess.STDOUT) as process:
            try:
                printed, _ = process.communicate(data, timeout)
            except BaseException:
                process.kill()
                raise
        text = printed.decode(errors="surrogateescape")
        if check and process.returncode != 0:
            error = subprocess.CalledProcessError(process.returncode, command, text)
            error.add_note(text)  # the message does not show the output
            raise error
        return printed if binary else text

    def shell(self):
        """Runs a root shell in the machine, on the terminal of this program."""
        with self.popen(["bash", "--login"], env={"TERM": os.environ.get("TERM", "dumb")},
                        stdin=None, start_new_session=False) as process:
            process.wait()

    def succeeds(self, command, **options):
        """Whether a command ends with status 0."""
        try:
            self.run(command, **options)
        except subprocess.CalledProcessError:
            return False
        return True

    # Files

    def on_host(self, path):
        """The host's path of a file in the machine, given by its absolute path there.

        An absolute symbolic link in it would lead out of the machine. Access by this path takes no
        processor time in the machine.
        """
        return pathlib.Path(f"/proc/{self.leader}/root{path}")

    def read(self, path):
        """The text of a file; read bytes with run(["cat", path], binary=True)."""
        return self.run(["cat", "--", path])

    def write(self, path, content, mode=0o644):
        """Replaces a file atomically and makes its folders. `content` is text or bytes."""
        script = ('mkdir -p "$(dirname "$0")"; new=$(mktemp "$0.XXXXXX"); cat >"$new"; '
                  'chmod "$1" "$new"; mv -T "$new" "$0"')
        self.run(["sh", "-ec", script, path, f"{mode:o}"], input=content)

    def push(self, host_path, path, mode=None):
        """Copies a file of the host into the machine, with its mode unless one is given."""
        source = pathlib.Path(host_path)
        self.write(path, source.read_bytes(), mode or source.stat().st_mode & 0o7777)

    def push_folders(self, places, root):
        """Copies folders of the host; each is given its path below `root`. All can read them."""
        packed = io.BytesIO()
        with tarfile.open(fileobj=packed, mode="w") as archive:
            for folder, place in places.items():
                archive.add(folder, place, filter=_readable_by_all)
        self.run(["tar", "-x", "-C", root], input=packed.getvalue(), timeout=300)

    def exists(self, path):
        return self.succeeds(["test", "-e", path])

    def changes(self):
        """The host's path of the folder with all files that differ from those of the image."""
        return f"/proc/{self._holder.pid}/root{self._folder}/disk/upper"

    # Packages

    def install(self, deb, *options):
        """Installs a package file of the host with apt-get; returns what that printed."""
        target = "/var/tmp/" + os.path.basename(deb)
        self.push(deb, target, 0o644)
        return self.run(["apt-get", "install", "--yes", *options, target],
                        env={"DEBIAN_FRONTEND": "noninteractive"}, timeout=300)

    def version_of(self, package):
        """The installed version, as dpkg gives it; empty if the package is not installed."""
        return self.run(["dpkg-query", "--show", "--showformat=${Version}", package],
                        check=False) if self.succeeds(["dpkg-query", "--show", package]) else ""

    # Users

    def login(self, user, seat="seat0", remote_host=None, graphical=True):
        """Logs a user in. On a seat, the new session becomes the active one. See Session."""
        return Session(self, user, seat, remote_host, graphical)

    # The service under test

    def send(self, request, user=None, session=None):
        """Sends one line to the control socket and returns the reply without its line feed.

        The peer is a process of root, of `user` outside every session, or of a `session`.
        """
        run = session.run if session else self.run
        who = {} if session else {"user": user}
        return run(["nc", "-U", "-N", SOCKET], input=request + "\n", **who).removesuffix("\n")

    def log(self):
        """All lines that the service and its child processes have written so far."""
        return self.run("journalctl --sync; journalctl --quiet --output=cat "
                        f"_SYSTEMD_UNIT={SERVICE}").splitlines()

    def wait_for_log(self, text, timeout=120, after=0):
        """Waits for a line of the service with `text` in it, and returns it.

        The first `after` lines are skipped. The caller gets that number from len(machine.log()).
        """
        deadline = time.monotonic() + timeout
        while True:
            self._take_messages(0)  # before reading, so that there is room for later ones
            lines = self.log()
            found = [line for line in lines[after:] if text in line]
            if found:
                return found[0]
            left = deadline - time.monotonic()
            if left <= 0:
                raise AssertionError(f"no line with {text!r} within {timeout} s; the log:\n  "
                                     + "\n  ".join(lines))
            # At most 3 s: another thread may take the message, and a full queue loses it.
            self._take_messages(min(left, 3), text)

    def _take_messages(self, seconds, text=None):
        """Takes messages of all units until one has `text` in it, or for so many seconds."""
        deadline = time.monotonic() + seconds
        while select.select([self._messages], [], [], max(0, deadline - time.monotonic()))[0]:
            message = self._messages.recv(2 ** 16)
            if text and text.encode() in message:
                return

    def journal(self):
        """All lines about the service with time stamps, those of the service manager included."""
        return self.run(["journalctl", "--quiet", "--output=short-precise", "--unit", SERVICE])
