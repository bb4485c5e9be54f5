#!/bin/sh
# Boots one machine and holds it until standard input ends; machine.py starts this, in a mount
# namespace of its own, with the writing end of a pipe. However the other side ends, the pipe does
# too, and then nothing is left: the machine's processes live in one process namespace, its mounts
# in a mount namespace, and control groups and folder are removed below.
#
#   hold-machine.sh IMAGE FOLDER    (FOLDER's last component names the machine)
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
# Wherever the host has its own, and whatever version that is: the machine's is the unified one.
mount -t cgroup2 lab /sys/fs/cgroup
mkdir "$group"

unshare --pid --mount-proc --fork --kill-child \
  sh "$(dirname "$0")/process-one.sh" "$folder" || true

# Entered processes of the host's side take a moment to notice that their machine is gone.
tries=0
until find "$group" -depth -type d -exec rmdir {} + 2>/dev/null || [ $tries -gt 500 ]; do
  tries=$((tries + 1))
  sleep 0.01
done
umount "$disk/root" "$disk"
rm -rf "$folder"
