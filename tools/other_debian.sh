#!/usr/bin/env bash
# Runs what the README tells people to run, and the release, on a fresh Debian of another version, from what is
# committed: tools/other_debian.sh [SUITE [COMMAND]...], the suite as Debian calls it (trixie when not given). Needs
# root, some 5 GB below build/ while it runs, and an hour for all three commands. The folder is removed in the end.
set -euo pipefail
cd "$(dirname "$0")/.."
suite=${1:-trixie}
[ $# -eq 0 ] || shift
[ $# -gt 0 ] || set -- tools/first_picture.sh tools/release.sh tools/run_tests.sh
[ "$(id -u)" -eq 0 ] || { echo "other_debian.sh: making a root of another system needs root" >&2 && exit 1; }
tools/install_packages.sh debootstrap git
mkdir -p build
root=$(mktemp -d "$PWD/build/$suite.XXXXXX")
chmod 755 "$root" # apt downloads as a user of its own
trap 'rm -rf --one-file-system "$root"' EXIT
debootstrap --variant=minbase --include=ca-certificates,git "$suite" "$root" >"$root.log" 2>&1 || {
    tail -n 5 "$root.log" >&2
    exit 1
}
rm "$root.log"
git clone -q --no-hardlinks . "$root/opt/tessary"
grep PRETTY_NAME "$root/etc/os-release"

# Mounts and processes of the root live in a space of their own and end with it.
for command; do
    echo "== $command"
    # shellcheck disable=SC2016
    unshare --mount --pid --fork --kill-child bash -c '
        mount -t proc proc "$1/proc" && mkdir -p "$1/dev/shm" "$1/dev/pts"
        mount -t tmpfs tmpfs "$1/dev/shm" && mount -t devpts devpts "$1/dev/pts"
        exec chroot "$1" env -i HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
            LANG=C.UTF-8 bash -c "cd /opt/tessary && exec $2"' - "$root" "$command"
done
