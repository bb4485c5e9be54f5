#!/bin/bash
# Shows an update, live, on a throw-away machine. Takes one or two minutes, and a few more the first
# time, for the build. Needs root on Debian 12; installs the packages that it needs with apt-get.
#
#   ./demo.sh            the demo
#   ./demo.sh --keep     the same, and then a shell in the machine
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")"

case "$*" in
  '' | --keep) ;;
  -h | --help) sed -n '2,6s/^# \{0,1\}//p' "$0"; exit ;;
  *) sed -n '2,6s/^# \{0,1\}//p' "$0" >&2; exit 2 ;;
esac

readonly Log=$PWD/build/logs/demo.log
mkdir -p "${Log%/*}"

# Runs a long command, says how long it took, and shows the end of its output if it failed.
work_on() { # WORDS COMMAND...
  local words=$1 start=$SECONDS
  shift
  printf '%s ... ' "$words"
  if ! "$@" >"$Log" 2>&1; then
    printf 'failed:\n'
    tail -n 40 "$Log"
    exit 1
  fi
  printf 'done (%d s)\n' $((SECONDS - start))
}

scripts/install-prerequisites demo
work_on 'Building the service, in two builds that differ in their stamp' lab/build release
work_on 'Making the Debian image of the machine, once' lab/image.sh
exec /usr/bin/python3 -m lab.story "$@"
