#!/bin/sh
# Boots one machine and keeps it until standard input ends. machine.py starts this script in a mount
# namespace of its own and holds the writing end of the pipe: however that program ends, the pipe
# ends too. Then the kernel ends the machine's processes with their process namespace and drops its
# mounts with the mount namespace; this script removes the control groups and the directory.
#
#   hold-machine.sh IMAGE FOLDER CHANGES [IMAGE_FILE]
#
# The last component of FOLDER is the machine's name. CHANGES is a folder with files that replace or
# join those of the image, or empty. With IMAGE_FILE the machine's disk is a file system in this new
# file instead of in memory. A machine that ends is booted again from the same disk when
# FOLDER/again exists.
set -eu
image=$1
folder=$2
changes=$3
file=${4:-}
name=${folder##*/}
group=/sys/fs/cgroup/$name
disk=$folder/disk

mount_disk() {
  if [ -n "$file" ]; then
    mount -o loop "$file" "$disk"
  else
    mount -t tmpfs -o size=8G,mode=755 lab "$disk"
  fi
}

mount_root() {
  mount -t overlay -o "lowerdir=$image,upperdir=$disk/upper,workdir=$disk/work" lab "$disk/root"
}

# Processes that entered the machine from the host may end a moment after it, and hold its control
# groups and its disk until then.
patiently() { # COMMAND...
  tries=0
  until "$@" 2>/dev/null; do
    tries=$((tries + 1))
    [ $tries -lt 6000 ] || { echo "hold-machine.sh: still fails: $*" >&2; return 1; }
    sleep 0.01
  done
}
remove_groups() { find "$group" -mindepth 1 -depth -type d -exec rmdir {} +; }
disk_is_free() { [ -z "$(losetup --associated "$file")" ]; }

mkdir "$disk"
[ -z "$file" ] || {
  truncate -s 8G "$file"
  mkfs.ext4 -q "$file"
}
mount_disk
mkdir "$disk/upper" "$disk/work" "$disk/root"
[ -z "$changes" ] || cp -a "$changes/." "$disk/upper"
mkdir -p "$disk/upper/etc"
tr -d - </proc/sys/kernel/random/uuid >"$disk/upper/etc/machine-id"
mount_root
# The machine needs the unified hierarchy, even if the host uses another one.
mount -t cgroup2 lab /sys/fs/cgroup
mkdir "$group"

while
  unshare --pid --mount-proc --fork --kill-child \
    sh "$(dirname "$0")/process-one.sh" "$folder" || true
  patiently remove_groups
  [ -e "$folder/again" ]
do
  rm "$folder/again"
  patiently umount "$disk/root"
  patiently umount "$disk"
  patiently disk_is_free
  mount_disk
  mount_root
done

rmdir "$group"
umount "$disk/root" "$disk"
rm -rf "$folder"
