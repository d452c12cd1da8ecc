#!/bin/sh
# Proves the README's two commands on a fresh machine: builds a minimal
# Debian 12 root filesystem, clones this repository into it (a commit, so
# only what is committed counts) and runs `make test` and `make demo` there
# as root, with nothing but make and git added by hand, as a new user would.
#
#   sh tools/fresh-check.sh [--keep] [REV]     (as root; REV defaults to HEAD)
#
# Takes about 32 minutes on a 2-core machine: ~2 for the root filesystem, ~29
# for `make test` (the bootstrap's packages, both builds without a compiler
# cache, the tests), ~1.5 for `make demo`. The log of each step is left in
# $FRESH_DIR (default /tmp/vantry-fresh), and the root is removed at the end
# unless --keep is given.
set -e
keep=0
[ "$1" = "--keep" ] && { keep=1; shift; }
rev=${1:-HEAD}
repo=$(cd "$(dirname "$0")/.." && pwd)
work=${FRESH_DIR:-/tmp/vantry-fresh}
root="$work/root"
mirror=${FRESH_MIRROR:-http://deb.debian.org/debian}

[ "$(id -u)" = 0 ] || { echo "fresh-check: run as root (debootstrap and chroot need it)" >&2; exit 2; }
commit=$(git -C "$repo" rev-parse --verify "$rev^{commit}")

if ! command -v debootstrap >/dev/null 2>&1; then
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends debootstrap >/dev/null
fi

unmount_all() {
    for m in dev/pts dev/shm dev sys proc; do
        mountpoint -q "$root/$m" 2>/dev/null && umount -l "$root/$m" || true
    done
}
cleanup() {
    # a wineserver or test left inside the root would keep its mounts busy
    [ -x "$root/usr/lib/wine/wineserver" ] && chroot "$root" sh -c \
        'cd /src && [ -d build/x64/wineprefix ] && sh cmake/wine-prefix.sh stop $PWD/build/x64/wineprefix' \
        >/dev/null 2>&1 || true
    unmount_all
    [ $keep -eq 1 ] || rm -rf "$root"
}
trap cleanup EXIT INT TERM

stamp() { date +%s; }
took() { echo "$(( $(stamp) - $1 )) s"; }

unmount_all
rm -rf "$root"
mkdir -p "$root"
echo "fresh-check: commit $commit, root $root"

t=$(stamp)
debootstrap --variant=minbase bookworm "$root" "$mirror" >"$work/debootstrap.log" 2>&1 ||
    { tail -20 "$work/debootstrap.log"; exit 1; }
echo "fresh-check: root filesystem made in $(took $t)"

# the same package lists the host uses, security updates included
cp /etc/apt/sources.list "$root/etc/apt/" 2>/dev/null || true
[ -d /etc/apt/sources.list.d ] && cp -r /etc/apt/sources.list.d/. "$root/etc/apt/sources.list.d/" 2>/dev/null || true
cp /etc/resolv.conf "$root/etc/resolv.conf" 2>/dev/null || true

mount -t proc proc "$root/proc"
mount --bind /sys "$root/sys"
mount --bind /dev "$root/dev"
mount --bind /dev/pts "$root/dev/pts"
mountpoint -q /dev/shm && mount --bind /dev/shm "$root/dev/shm" || true

in_root() { chroot "$root" /usr/bin/env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 sh -c "$1"; }

t=$(stamp)
in_root 'apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends make git ca-certificates' \
    >"$work/prereq.log" 2>&1 || { tail -20 "$work/prereq.log"; exit 1; }
git clone -q --no-hardlinks "$repo" "$root/src"
git -C "$root/src" checkout -q "$commit"
echo "fresh-check: make and git added, clone checked out in $(took $t)"

status=0
for target in test demo; do
    t=$(stamp)
    if in_root "cd /src && make $target" >"$work/make-$target.log" 2>&1; then
        echo "fresh-check: make $target passed in $(took $t)"
    else
        echo "fresh-check: make $target FAILED after $(took $t); the log's end:"
        tail -30 "$work/make-$target.log"
        status=1
    fi
    grep -E '^(installing:|[0-9]+% tests passed|Total Test time|demo:)' "$work/make-$target.log" || true
done
[ $status -eq 0 ] && echo "fresh-check: passed (logs in $work)"
exit $status
