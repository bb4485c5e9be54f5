"""What a service with a sanitizer needs on a machine, and how its reports are read."""

from lab.machine import SERVICE
from lab.releases import FLAVOUR

WORDS = ("Sanitizer", "runtime error:")  # LeakSanitizer, ThreadSanitizer and the others
# glibc is not built with the sanitizer, which therefore cannot see the lock of tzset() and reports
# a race between two threads that read a new time zone. glibc names no function there, so the rule
# names the library.
TSAN_RULES = "race:libc.so.6\n"
# The sanitizer cannot place its shadow memory in a randomised address space.
TSAN_UNIT = """[Service]
Environment="TSAN_OPTIONS=suppressions=/etc/lab/tsan-rules print_suppressions=0"
ExecStart=
ExecStart=/usr/bin/setarch -R /usr/sbin/vantrell-harbor-updated
"""


def prepare(machine):
    """Call before the service is installed."""
    if FLAVOUR == "tsan":
        machine.write("/etc/lab/tsan-rules", TSAN_RULES)
        machine.write(f"/etc/systemd/system/{SERVICE}.d/tsan.conf", TSAN_UNIT)


def reports(machine):
    """The log lines of a sanitizer. Ends the service first: leaks are reported at its end."""
    if FLAVOUR == "asan":
        machine.run(["systemctl", "stop", SERVICE], check=False)
    return [line for line in machine.log() if any(word in line for word in WORDS)]
