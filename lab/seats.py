"""Who is active on a seat: changes of it, as shell lines, with logind and without.

Without logind, libsystemd answers from the files that logind has left.
"""

SEATS, SESSIONS = "/run/systemd/seats", "/run/systemd/sessions"
END_LOGIND = "systemctl mask --now systemd-logind"
FORGET_ALL = f"rm -r {SEATS} {SESSIONS}"


def activate(session):
    return f"loginctl activate {session.id}"


def add_seat(session):
    """A second seat, on which the session is active too; without logind."""
    return (f"sed 's/^ACTIVE=.*/ACTIVE={session.id}/' {SEATS}/seat0 >{SEATS}/seat1; "
            f"sed -i 's/^ACTIVE=0/ACTIVE=1/' {SESSIONS}/{session.id}")


def forget_remoteness(session):
    """Nothing says whether the session is local or remote; without logind."""
    return f"sed -i /^REMOTE=/d {SESSIONS}/{session.id}"
