"""Shell scripts that come first in the service's PATH: they record calls, or fail on demand.

apt-get gives dpkg a PATH of its own, so maintainer scripts never call a stub.
"""

import shlex
from typing import NamedTuple

FOLDER = "/usr/local/sbin"  # where the PATH of the service begins
# Arguments and environment as /proc has them, each followed by a byte that no test uses in them.
_RECORD = r"""{ cat /proc/$$/cmdline; printf '\1'; cat /proc/$$/environ; printf '\2'; } \
  >>"/run/calls-${0##*/}"
"""
# Runs the tool that the stub replaces.
REAL_TOOL = 'PATH=${PATH#*:}; exec "${0##*/}" "$@"'


class Call(NamedTuple):
    """One call of a tool: its arguments, and the entries of its environment."""
    arguments: list
    environment: list


def stub(tool, script):
    """A shell line that replaces a tool by a script."""
    path = f"{FOLDER}/{tool}"
    text = shlex.quote(f"#!/bin/sh\n{script}\n")
    return f"printf %s {text} >{path}; chmod +x {path}"


def unstub(tool):
    """A shell line that removes the stub of a tool."""
    return f"rm {FOLDER}/{tool}"


def record(machine, tool, script=REAL_TOOL):
    """Records each call of a tool and then runs a script, which is by default the tool itself."""
    machine.run(stub(tool, _RECORD + script))


def calls(machine, tool):
    """The recorded calls of a tool by the service, in their order."""
    recorded = [call.split("\1") for call in machine.read(f"/run/calls-{tool}").split("\2")[:-1]]
    return [Call(line.split("\0")[2:-1], environment.split("\0")[:-1])
            for line, environment in recorded
            if "\0EXIT_STATUS=" not in "\0" + environment]  # which only scripts of the unit have
