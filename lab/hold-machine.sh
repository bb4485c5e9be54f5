#!/bin/sh
# Boots one machine and keeps it until standard input ends. machine.py starts this script in a mount
# namespace of its own and holds the writing end of the pipe: however that program ends, the pipe
# ends too. Then the kernel ends the machine's processes with their process namespace and drops its
# mounts with the mount namespace; this script removes the control groups and the directory.
#
#   hold-machine.sh IMAGE FOLDER    (the last component of FOLDER is the machine's name)
set -eu
image=$1
folder=$2
name=${folder##*/}
group=/sys/fs/cgroup/$name
disk=$folder/disk

mkdir "$disk"
mount -t tmpfs -o size=8G,mode=755 lab "$disk"
mkdir "$disk/upper" "$disk/upper/etc" "$disk/work" "$disk/root"
tr -d - </proc/sys/kernel/random/uuid >"$disk/upper/etc/machine-id"
mount -t overlay -o "lowerdir=$image,upperdir=$disk/upper,workdir=$disk/work" lab "$disk/root"
# The machine needs the unified hierarchy, even if the host uses another one.
mount -t cgroup2 lab /sys/fs/cgroup
mkdir "$group"

unshare --pid --mount-proc --fork --kill-child \
  sh "$(dirname "$0")/process-one.sh" "$folder" || true

# Processes that entered the machine from the host may end a moment after it.
tries=0
until find "$group" -depth -type d -exec rmdir {} + 2>/dev/null || [ $tries -gt 500 ]; do
  tries=$((tries + 1))
  sleep 0.01
done
umount "$disk/root" "$disk"
rm -rf "$folder"
