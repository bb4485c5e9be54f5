#!/bin/bash
# Makes the image that every lab machine boots from, unless it exists. Prints its path, or one
# sentence on why it cannot be made. The image is Debian 12, or 13 with VANTRELL_LAB_SUITE=trixie,
# from this machine's own apt sources. Its name holds a hash of the recipe: a changed recipe makes a
# new image, and an old checkout finds its own one again.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")"
export LC_ALL=C

readonly Suite=${VANTRELL_LAB_SUITE:-bookworm}
readonly HostSuite=bookworm  # of the sources
readonly Cache="${VANTRELL_LAB_CACHE:-$PWD/../build/lab}"
# First the packages of a desktop with the service, then those of the lab: a web server,
# certificates, a client for the control socket, and tools for a shell.
readonly Packages=systemd,systemd-sysv,dbus,dbus-user-session,libpam-systemd,tzdata,login,passwd,\
libcurl4,libgnutls30,libsystemd0,libstdc++6,\
nginx-light,openssl,ca-certificates,netcat-openbsd,procps,iproute2

fail() {
  echo "lab: $*"
  exit 1
}

hash=$({ cat image.sh image-content.sh login/open_session.cpp
         find image -type f | sort | xargs tail -v -n +1; } | sha256sum | cut -c1-12)
mkdir -p "$Cache"
image="$(readlink -f "$Cache")/image-$Suite-$hash"
# Only one of two test runs that start together may make the image.
exec 9>"$Cache/lock"
flock 9
if [ -d "$image" ]; then
  echo "$image"
  exit
fi

echo "lab: making the image (about a minute, once)" >&2
work=$(mktemp -d "$Cache/making.XXXXXX")
trap 'rm -rf "$work"' EXIT
g++ -std=c++20 -O1 -Wall -Wextra -Werror -o "$work/open-session" login/open_session.cpp -lpam
# A word of its own: the sources of bookworm-backports alone do not hold Debian 12.
mapfile -t sources < <(grep -lsE "(^|[[:space:]])$HostSuite([[:space:]]|\$)" \
  /etc/apt/sources.list /etc/apt/sources.list.d/*.list /etc/apt/sources.list.d/*.sources)
[ ${#sources[@]} != 0 ] || fail "/etc/apt has no source for Debian 12; add one for $HostSuite"
# The mirrors of Debian 12 hold the other suites, too, with the same components. Updates and
# security updates are suites of their own: bookworm-updates becomes trixie-updates.
mkdir "$work/sources"
cp "${sources[@]}" "$work/sources"
sed -Ei "s/(^|[[:space:]])$HostSuite\b/\1$Suite/g" "$work/sources/"*
# The image is fetched with this machine's proxy and retry settings.
apt-config dump | grep -E '^Acquire::(https?::Proxy|Check-|Retries)' >"$work/apt.conf" || true
if ! mmdebstrap --quiet --mode=root --variant=minbase --include="$Packages" \
    --aptopt="$work/apt.conf" --dpkgopt='path-exclude=/usr/share/man/*' \
    --dpkgopt='path-exclude=/usr/share/locale/*' --dpkgopt='path-exclude=/usr/share/doc/*' \
    --customize-hook="copy-in $work/open-session /usr/local/sbin" \
    --customize-hook="cp -r image/. \"\$1/\"" \
    --customize-hook="chroot \"\$1\" sh -s <image-content.sh" \
    "$Suite" "$work/root" "$work/sources/"* >"$work/log" 2>&1; then
  cat "$work/log" >&2
  fail "the image of $Suite cannot be made; the sources in /etc/apt must serve this suite, and" \
    "the package debian-archive-keyring must have its keys"
fi
mv "$work/root" "$image"
echo "$image"
