"""Lines that the service and the repair write into the journal, and when they wrote them.

A line with {} in it is a pattern for str.format().
"""

import json

from lab.machine import SERVICE, SOCKET
from lab.releases import FIRST_STAMP

LISTENING = f"[UpdateSvc] vantrell-harbor-updated {FIRST_STAMP} listening on {SOCKET}; "
START = LISTENING + "ring prod, component client-linux-amd64, window 02:00-05:00 local"
STOP = "[UpdateSvc] stopping"
NO_WINDOW = "[UpdateSvc] holding: outside the maintenance window ({})"
HELD = "a session is live ({} held)"
RELEASED = "a session ended ({} held)"

NO_COPY = "[UpdateSvc] no rollback copy could be taken"
NO_START = "[UpdateSvc] could not start the client in {}'s session: "
APPLIED_ALONE = "[UpdateSvc] applied {}; no console session to relaunch into"
UNJUDGED = APPLIED_ALONE.format("1.1")
RELAUNCHED = "[UpdateSvc] applied 1.1 and relaunched the client"
INSTALL_DELAYS_STOP = "waiting for an install to end before the service stops"
# The second line is written by the unit of lab.service_view.log_exit_status().
ENDED = [STOP + " for the new build", "ended with status 75"]

REFUSED = "[UpdateSvc] apply refused: "
GONE = "[UpdateSvc] the new client exited within 20000ms"
ROLLBACK = "[UpdateSvc] rolling back to the previous set (1.1)"
NOT_STAYED = REFUSED + "the updated client did not stay running"
NOTHING_RESTORED = NOT_STAYED + " and there was no rollback copy"
RESTORED = NOT_STAYED + "; the previous version was restored"

KIOSK_ASKED = ("[UpdateSvc] asked the kiosk supervisor (kiosk@1.service) to restart its client "
               "from the new image (attempt {})")
KIOSK_STARTED = "[UpdateSvc] the kiosk supervisor started pid {}"
KIOSK_STARTED_NONE = "[UpdateSvc] the kiosk supervisor started no new client within 15000ms"
KIOSK_UNJUDGED = ("[UpdateSvc] applied without judging: the kiosk client picks up the new image "
                  "when it next starts")

IN_WINDOW = "the window is open: asked for the install of 1.1"
PAUSED = ('paused: vantrell-harbor is on hold, so no release is installed; "apt-mark unhold '
          'vantrell-harbor" resumes')
NO_ANSWER = f"the update service does not answer on {SOCKET}: {{}}"

UP_TO_DATE = "[UpdateSvc] up to date"
WAITED = "waiting for an install that outlived the service"
CHECK_KILLED = "ending the service in the middle of a check; the next start begins with a new one"
FINISHED = "dpkg was interrupted; finishing its work"
REINSTALLED = "vantrell-harbor is damaged; installing the rollback copy"
NO_PROVED_FILE = ("vantrell-harbor is damaged, and no package file here is proved to be the right "
                  "one; install it by hand: apt-get install --reinstall ./FILE.deb")
COPIED_AGAIN = "the rollback copy was missing or damaged; made it again from the staged package"
COPY_REMOVED = ("no rollback copy: no file here is the package that was accepted last; the next "
                "release that is accepted gives one")
TAKEN_BACK = "the service of {} does not start; installed 1.1 again"
NONE_EARLIER = ("the service of {} has failed 3 times, and no earlier package is kept; install one "
                "by hand: apt-get install --reinstall ./FILE.deb")
NO_ROOM = "the service of {} does not start, and 1.1 cannot be installed again:"
CLONED = "the install id was made on another machine; the service makes a new one"


def times(machine):
    """The last time of each line of the service, in seconds on the clock of time.monotonic()."""
    entries = machine.run("journalctl --sync; journalctl --quiet --output=json "
                          f"_SYSTEMD_UNIT={SERVICE}").splitlines()
    lines = [json.loads(entry) for entry in entries]
    return {str(line["MESSAGE"]): int(line["__MONOTONIC_TIMESTAMP"]) / 1e6 for line in lines}
