#!/bin/sh
# Process 1 of a machine's process namespace on the host: when it ends, the kernel ends all other
# processes of the namespace. It runs until the machine or standard input ends. hold-machine.sh
# starts it.
set -eu
folder=$1
name=${folder##*/}

exec 3<&0
{
  cat <&3 >/dev/null
  kill -KILL -1 # all processes of the namespace except process 1
} &
(
  echo 0 >"/sys/fs/cgroup/$name/cgroup.procs"
  export SYSTEMD_NSPAWN_UNIFIED_HIERARCHY=1 NOTIFY_SOCKET="$folder/notify"
  exec systemd-nspawn --quiet --boot --directory="$folder/disk/root" --machine="$name" \
    --hostname=harbor --register=no --keep-unit --private-network --link-journal=no \
    --resolv-conf=off --timezone=off --notify-ready=yes --console=pipe
) </dev/null
