#!/usr/bin/env bash
# Installs the Debian packages in a bare Debian 12 beside this system and uses them there: the tool with nothing but its
# package, then the examples of the -dev package. Needs root, debootstrap and a package mirror (DEBIAN_MIRROR).
#
# usage: clean_machine.sh PACKAGE_DIR
set -euo pipefail
packages=$(readlink -f "$1")
source=$(readlink -f "$(dirname "$0")/../..")
root=$(mktemp -d /var/tmp/clean-machine-XXXXXX)
trap 'rm -rf "$root" "$root.log"' EXIT

debootstrap --variant=minbase bookworm "$root" "${DEBIAN_MIRROR:-http://deb.debian.org/debian}" \
    >"$root.log" 2>&1 || { tail -n 20 "$root.log" >&2; exit 1; }
for file in /etc/apt/apt.conf.d/*proxy* /etc/apt/apt.conf.d/*cert*; do
    [ ! -e "$file" ] || cp "$file" "$root/etc/apt/apt.conf.d/"
done
mkdir "$root/packages" "$root/samples"
cp "$packages"/*.deb "$root/packages/"
cp "$source"/samples/*.ndjson "$root/samples/"

inside() {
    chroot "$root" env DEBIAN_FRONTEND=noninteractive LC_ALL=C "$@"
}

echo "-- the tool and its library"
inside apt-get -qq update
inside sh -c 'apt-get -qq -y --no-install-recommends install /packages/inscenter_*.deb /packages/libpminstrumentcenter0*.deb' >/dev/null
inside inscenter --data /samples --today 20260302 --center client --store /tmp/store get DCEm2607 | grep -q 'm2607'

echo "-- a host against the -dev package"
inside sh -c 'apt-get -qq -y --no-install-recommends install /packages/*.deb g++ cmake make' >/dev/null
inside sh -c 'cmake -S /usr/share/doc/libpminstrumentcenter-dev/examples -B /tmp/build >/dev/null && cmake --build /tmp/build >/dev/null && /tmp/build/server_host'
inside sh -c 'g++ -std=c++17 /usr/share/doc/libpminstrumentcenter-dev/examples/updates_host.cpp $(pkg-config --cflags --libs PmInstrumentCenter) -o /tmp/host && /tmp/host /tmp/updates'

echo "-- the Python package"
inside python3 -B -c 'import inscenter; assert inscenter.ServerCenter.open("/samples")["DCEm2607"].code == "m2607"'

echo "-- removed without a trace"
inside sh -c 'apt-get -qq -y purge inscenter python3-inscenter libpminstrumentcenter-dev "libpminstrumentcenter0*"' >/dev/null
left=$(inside find /usr -iname '*pminstrument*' -o -iname '*inscenter*' -not -path '/proc/*')
[ -z "$left" ] || { echo "left behind: $left" >&2; exit 1; }
echo "ok"
