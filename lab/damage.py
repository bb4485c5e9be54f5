"""Damage to the service's files and tools, as shell lines: what a full disk or a mistake leaves."""

from typing import NamedTuple

from lab.service_view import COPY, KEPT, RECORD, STAGING, STATE
from lab.stubs import stub, unstub

# To the rollback copy and the staged files. The directory of release 1.1 is staged, and each line
# finds what the line before and a start of the service have left.
TO_COPY = {
    "the copy is cut": f"cp {COPY} {STAGING}/1.1/; truncate -s 70416 {COPY}",
    "the copy is a link": f"cp {COPY} {STAGING}/1.1/a.deb; mv {COPY} /root/good.deb; "
                          f"ln -s /root/good.deb {COPY}",
    "a repair was killed between its two moves": f"mv {COPY} {COPY}.new",
    "the copy has moved, and others may read its directory":
        f"mv {COPY} {STAGING}/1.1/-.deb; chmod 755 $(dirname {COPY})",
    "staged files have strange names, and a link leads to /root/precious":
        f"mkdir -p /root/precious; touch /root/precious/file; cd {STAGING}; "
        "mkdir -p 1.1/-rf '2 \n*'; ln -s /root/precious 1.2; ln -s /root/precious/file 1.1/x.deb",
    "the copy and the staged file are cut":
        f"head -c 70416 {COPY} >{STAGING}/1.1/a.deb; cp {STAGING}/1.1/a.deb {COPY}",
    "no record names the copy": f"cp /root/good.deb {COPY}; : >{RECORD}",
}


# After release 1.2 was taken back, whose package is /root/1.2.deb: what a power cut at another
# moment of the rescue would have left.
_BEFORE_STATE = (f"old=$(cut -d ' ' -f 1 {KEPT}/state) && "
                 "new=$(sha256sum /root/1.2.deb | cut -d ' ' -f 1) && "
                 f"cp /root/1.2.deb {KEPT}/$new.deb && echo $new $old >{KEPT}/state")
_BEFORE_MOVE = (f"{_BEFORE_STATE}; touch {KEPT}/begun; mv {COPY} {COPY}.new; "
                f"cp /root/1.2.deb {COPY}")
IN_RESCUE = {
    "before the state": _BEFORE_STATE,
    "before the last move": _BEFORE_MOVE,
    "before the record": f"{_BEFORE_MOVE}; sed -i 1d {RECORD}; head -c 9 {RECORD} >{RECORD}.new",
    "before all records": f"{_BEFORE_MOVE}; sed -i 1d {RECORD}; rm {COPY}.new",
}
# To the package to go back to.
KEPT_CUT = f"truncate -s 70416 {KEPT}/$(cut -d ' ' -f 1 {KEPT}/state).deb"

# To the disk of the service's directory, which is full but for a few blocks, and its repair.
FILL_DISK = (f"mkdir -p {STATE} && mount -t tmpfs -o size=32k,mode=755 tmpfs {STATE} && "
             f"! head -c 64K /dev/zero >{STATE}/filling")
MAKE_ROOM = f"rm {STATE}/filling && mount -o remount,size=1m {STATE}"


class Mendable(NamedTuple):
    damage: str
    repair: str


STAGED_FILE_CHANGED = Mendable(f"echo >>{STAGING}/1.1/notes/readme",
                               f"truncate -s -1 {STAGING}/1.1/notes/readme")
PACKAGE_UNREADABLE = Mendable(stub("dpkg-deb", r"printf 'one\ntwo\r\n\n'; exit 2"),
                              unstub("dpkg-deb"))
PACKAGE_READER_MISSING = Mendable("mv /usr/bin/dpkg-deb /root", "mv /root/dpkg-deb /usr/bin")
INSTALLER_MISSING = Mendable("mv /usr/bin/apt-get /root", "mv /root/apt-get /usr/bin")
INSTALLER_KILLED = Mendable(stub("apt-get", "echo begun; kill -KILL $$"), unstub("apt-get"))
NO_ROOM_FOR_PACKAGE = Mendable("mount -t tmpfs -o size=512k tmpfs /usr/share/vantrell-harbor",
                               "umount /usr/share/vantrell-harbor")
