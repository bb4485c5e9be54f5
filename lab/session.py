"""A login session of a user on a machine, opened through PAM and registered with logind."""

import os
import subprocess
import time


class Session:
    """An open session; it ends with logout(), a with block or the machine.

    `id` is its name in logind, `environment` that of the programs in it. Remote sessions and
    sessions without a seat are never active on a seat.
    """

    def __init__(self, machine, user, seat, remote_host, graphical):
        self.user = user
        self._machine = machine
        self._login = machine.popen(
            ["/usr/local/sbin/open-session", user, "x11" if graphical else "tty", seat or "",
             remote_host or ""], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.environment = {"LANG": "en_GB.UTF-8"}
        for line in iter(self._login.stdout.readline, b"\n"):
            if not line:
                raise RuntimeError(f"{user} cannot log in")
            name, _, value = line.decode().rstrip("\n").partition("=")
            self.environment[name] = value
        self.id = self.environment["XDG_SESSION_ID"]
        runtime = self.environment["XDG_RUNTIME_DIR"]
        self._group = f"/user.slice/user-{os.path.basename(runtime)}.slice/session-{self.id}.scope"
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={runtime}/bus"
        if graphical:
            self.environment.update(DISPLAY=":0", XAUTHORITY=f"{runtime}/Xauthority",
                                    XDG_CURRENT_DESKTOP="GNOME")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.logout()

    def start(self, command, env=None, **options):
        """Starts a program in the session as its user; see Machine.popen."""
        return self._machine.popen(command, self.user, {**self.environment, **(env or {})},
                                   self._group, **options)

    def run(self, command, env=None, **options):
        """Runs a program in the session to its end; see Machine.run."""
        return self._machine.run(command, user=self.user, group=self._group,
                                 env={**self.environment, **(env or {})}, **options)

    def logout(self):
        """Ends the session and every process in it before it returns.

        The user's manager stays for ten seconds after the last session.
        """
        if self._login.stdin.closed:
            return
        self._login.stdin.close()
        self._login.wait()
        scope = os.path.basename(self._group)
        self._machine.run(["systemctl", "stop", scope], check=False)
        # The service manager tells logind of the end, and logind announces nothing: poll.
        record = self._machine.on_host(f"/run/systemd/sessions/{self.id}")
        deadline = time.monotonic() + 60
        while record.exists() and time.monotonic() < deadline:
            time.sleep(0.01)
        assert not record.exists(), f"session {self.id} does not end"
