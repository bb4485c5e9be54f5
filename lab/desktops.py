"""Clients where desktops and kiosks start them, with the user's name as their argument."""

from lab.kiosk import start_kiosk
from lab.service_view import CLIENT

UNIT = r"app-vantrell\x2dharbor"  # how a desktop names the units of vantrell-harbor.desktop
AUTOSTART = "/etc/xdg/autostart/vantrell-harbor.desktop"


def start_in_scope(machine, user):
    """Starts a client as desktops do that give each program a scope of the user's manager."""
    machine.login(user).start(["systemd-run", "--user", "--scope", "--quiet",
                               rf"--unit={UNIT}-4711.scope", CLIENT, user])


def start_by_autostart(machine, user):
    """Starts a client by a desktop file in the autostart directory, through systemd's generator."""
    machine.write(AUTOSTART, f"[Desktop Entry]\nType=Application\nName=x\nExec={CLIENT} {user}\n")
    machine.login(user).run(["sh", "-ec", "systemctl --user import-environment DISPLAY\n"
                             "systemctl --user daemon-reload; systemctl --user start \"$0\"",
                             f"{UNIT}@autostart.service"])


def start_in_service(machine, user, restart="on-failure"):
    """Starts a client as desktops do that give each program a service of the user's manager."""
    machine.login(user).run(["systemd-run", "--user", "--quiet", f"--unit={UNIT}-{restart}.service",
                             f"--property=Restart={restart}", "--property=RestartSec=1",
                             "--property=StartLimitIntervalSec=0", "--setenv=DISPLAY",
                             CLIENT, user])


def start_in_supervised_service(machine, user):
    """As start_in_service(); the user's manager starts a client that ended again."""
    start_in_service(machine, user, "always")


def start_as_kiosk(machine, user):
    """Starts a client as the package's sample does."""
    start_kiosk(machine, names=[user])


def end_all(machine):
    """Ends all sessions, managers of users and kiosks; then every user can log in anew."""
    machine.run("systemctl stop 'kiosk@*' 'session-*.scope' 'user@*'\n"
                "while loginctl list-users --no-legend | grep -q .; do sleep 0.1; done")
