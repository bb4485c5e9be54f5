"""A process inside a machine, started from the host."""

import os
import subprocess

# Runs inside, as root: joins a group, writes its pid, closes that pipe and becomes the command.
_BEGIN = ('[ -z "$0" ] || echo 0 >"/sys/fs/cgroup$0/cgroup.procs" || exit 125; '
          'echo $$ >&$1; exec {1}>&-; cd "$HOME"; shift; exec "$@"')


class Process(subprocess.Popen):
    """As Popen, but signals go to the process inside and not to the nsenter that started it.

    It has a session and a process group of its own, so that `kill 0` inside does not reach this
    program.

    `pid_inside` is its pid as the machine sees it. The process ends when this program or the
    machine ends. A shell line is a process too: what it starts does not get its signals.
    """

    def __init__(self, machine, command, user, env, group, **options):
        if isinstance(command, str):
            command = ["bash", "-c", command]
        become = ["setpriv", "--pdeathsig", "KILL"]
        if user and user != "root":
            become += ["--reuid", user, "--regid", user, "--init-groups"]
            env = {"HOME": f"/home/{user}", "USER": user, "LOGNAME": user, **env}
        reading, writing = os.pipe()
        # nsenter stays in the lab's own group. The machine's manager must not see it in one of its
        # groups: it has no pid in the machine.
        enter = ["sh", "-c", 'echo 0 >"$0/cgroup.procs" && exec "$@"', machine.entrance,
                 "nsenter", "--target", machine.leader, "--mount", "--uts", "--ipc", "--net",
                 "--pid", "--cgroup", "--",
                 "bash", "-c", _BEGIN.replace("{1}", str(writing)), group or "", writing, *become]
        super().__init__([str(word) for word in [*enter, *command]], pass_fds=[writing],
                         env={"HOME": "/root", **env},
                         **{"stdin": subprocess.DEVNULL, "start_new_session": True, **options})
        self.args = command  # for error messages
        os.close(writing)
        with os.fdopen(reading) as announced:
            pid = announced.readline()
        if not pid:
            self.wait()
            raise RuntimeError(f"cannot enter the machine (status {self.returncode})")
        self.pid_inside = int(pid)

    def send_signal(self, sig):
        if self.poll() is not None:
            return
        with open(f"/proc/{self.pid}/task/{self.pid}/children") as children:
            host_pid = children.read()
        if host_pid:  # empty when it has ended and nsenter has not noticed yet
            os.kill(int(host_pid), sig)
