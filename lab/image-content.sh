#!/bin/sh
# Runs inside the new root: makes users and certificates, and turns off what would slow down the
# boot or use a network.
set -eu

# apt gets no source to fetch from. dpkg gets no filters: it installs all files of a package,
# documentation included.
rm -f /etc/apt/sources.list /etc/apt/sources.list.d/* /etc/apt/apt.conf.d/99mmdebstrap \
  /etc/dpkg/dpkg.cfg.d/99mmdebstrap /etc/resolv.conf
echo harbor >/etc/hostname
cat >/etc/hosts <<'HOSTS'
127.0.0.1 localhost harbor
127.0.0.11 updates.vantrell.example
127.0.0.12 downloads.vantrell.example
127.0.0.13 storage.vantrell.example
127.0.0.14 blobs.vantrell.example
HOSTS
ln -sf /usr/share/zoneinfo/Etc/UTC /etc/localtime

uid=1001
for user in alice bob carol; do
  useradd --create-home --user-group --uid $uid --shell /bin/bash $user
  uid=$((uid + 1))
done
useradd --create-home --user-group --uid 1010 --shell /bin/bash kiosk

# The keys are elliptic, since a test run makes thousands of handshakes and these are fast. The
# authorities' private keys are not kept.
mkdir -p /etc/lab
cd /etc/lab
authority() { # NAME
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 7300 \
    -subj "/CN=$1" -keyout "$1.key" -out "$1.crt"
}
certificate() { # NAME AUTHORITY SUBJECT_NAMES
  openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj "/CN=$1" \
    -keyout "$1.key" -out request
  echo "subjectAltName=$3" >extensions
  openssl x509 -req -in request -CA "$2.crt" -CAkey "$2.key" -CAcreateserial -days 7300 \
    -extfile extensions -out "$1.crt"
}
ours=DNS:updates.vantrell.example,DNS:downloads.vantrell.example
ours=$ours,DNS:storage.vantrell.example,DNS:blobs.vantrell.example,DNS:mirror.site.example
authority lab-authority
authority unknown-authority
certificate server lab-authority $ours
certificate wrong-name lab-authority DNS:somebody-else.vantrell.example
certificate unknown unknown-authority $ours
# Only the lab's authority is trusted: the service reads all of them for each request, and a test
# run makes thousands of requests.
sed -i 's/^[^#!]/!&/' /etc/ca-certificates.conf
cp lab-authority.crt /usr/local/share/ca-certificates/
update-ca-certificates
rm -f ./*authority.key ./*.srl request extensions

for host in updates downloads storage blobs; do
  mkdir -p /srv/lab/$host.vantrell.example
done
mkdir -p /srv/lab/misbehave

systemctl enable nginx.service lab-mute.socket
systemctl set-default multi-user.target
systemctl mask apt-daily.timer apt-daily-upgrade.timer dpkg-db-backup.timer e2scrub_all.timer \
  e2scrub_reap.service fstrim.timer getty.target console-getty.service systemd-timesyncd.service \
  systemd-tmpfiles-clean.timer systemd-sysctl.service systemd-firstboot.service \
  dev-hugepages.mount systemd-remount-fs.service systemd-update-utmp.service \
  systemd-update-utmp-runlevel.service
