"""Runs verify-release, the program for those who publish, beside the servers of a machine."""

import re

from lab.control_program import Answer
from lab.releases import BUILT

_WITNESS = re.compile(r"  witness (\d), ")
_WRONG = re.compile(r"    (\w+) +WRONG  (.*?)( \(by release key .\))?$")


def install_verifier(machine):
    machine.push(BUILT / "verify-release", "/usr/local/bin/verify-release")
    # Each request reads all authorities: with those of Debian that takes nine tenths of the time.
    machine.run("cp /etc/lab/lab-authority.crt /etc/ssl/certs/ca-certificates.crt")


def verify(machine, words=""):
    """Runs the program with words of a shell line, as a user without rights."""
    printed = machine.run(f"verify-release {words}; echo $?", user="alice")
    text, status = printed.removesuffix("\n").rsplit("\n", 1)
    return Answer(int(status), text)


def wrong_files(answer):
    """The files that a report calls wrong: pairs of witness and file, each with its fault."""
    witness, found = 0, {}
    for line in answer.printed.splitlines():
        if match := _WITNESS.match(line):
            witness = int(match[1])
        elif match := _WRONG.match(line):
            found[witness, match[1]] = match[2]
    return found
