"""A process inside a machine, started from the host."""

import os
import subprocess

# Runs inside, as root: joins a group, says its pid, closes that pipe and becomes the command.
_BEGIN = ('[ -z "$0" ] || echo 0 >"/sys/fs/cgroup$0/cgroup.procs" || exit 125; '
          'echo $$ >&$1; exec {1}>&-; cd "$HOME"; shift; exec "$@"')


class Process(subprocess.Popen):
    """As Popen, with signals that reach the process itself and not the door it went in by.

    `pid_inside` is its pid as the machine sees it. When this program ends, or the machine, the
    process ends too. A line for the shell is one: what it starts does not get its signals.
    """

    def __init__(self, machine, command, user, env, group, **options):
        if isinstance(command, str):
            command = ["bash", "-c", command]
        become = ["setpriv", "--pdeathsig", "KILL"]
        if user and user != "root":
            become += ["--reuid", user, "--regid", user, "--init-groups"]
            env = {"HOME": f"/home/{user}", "USER": user, "LOGNAME": user, **env}
        reading, writing = os.pipe()
        # The door stays in the lab's own group: a process that the machine's namespace cannot
        # name, in a group that the machine's manager cares for, would confuse that manager.
        enter = ["sh", "-c", 'echo 0 >"$0/cgroup.procs" && exec "$@"', machine.entrance,
                 "nsenter", "--target", machine.leader, "--mount", "--uts", "--ipc", "--net",
                 "--pid", "--cgroup", "--",
                 "bash", "-c", _BEGIN.replace("{1}", str(writing)), group or "", writing, *become]
        super().__init__([str(word) for word in [*enter, *command]], pass_fds=[writing],
                         env={"HOME": "/root", **env}, **{"stdin": subprocess.DEVNULL, **options})
        self.args = command  # what messages name
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
        if host_pid:  # or it has ended, and the door has not noticed
            os.kill(int(host_pid), sig)
