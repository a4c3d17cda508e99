#!/bin/sh
# What the MIPS build needs on top of scripts/deps.sh: the cross compiler,
# qemu-user to run its programs, dpkg-dev and tcl for `apt-get source` and
# SQLite's amalgamation, and a deb-src entry so that apt-get can fetch
# Debian's sources. Idempotent and quiet when everything is there.
set -e
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO=sudo

pkgs="g++-mips-linux-gnu qemu-user dpkg-dev tcl"
missing=""
for p in $pkgs; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing="$missing $p"
done

# Source entries beside every Debian binary entry, written once, when the
# machine has no deb-src entry of its own (deb822 and one-line lists alike).
src_dir=/etc/apt/sources.list.d
need_update=""
if ! grep -rqsE '^[[:space:]]*(deb-src[[:space:]]|Types:.*deb-src)' \
    /etc/apt/sources.list $src_dir/*.list $src_dir/*.sources; then
    echo "deps: adding Debian source entries to $src_dir"
    tmp=$(mktemp -d)
    for f in $src_dir/*.sources; do
        [ -f "$f" ] || continue
        awk 'BEGIN { RS = ""; ORS = "\n\n" }
             /(^|\n)Types: deb(\n|$)/ && /debian/ { sub(/Types: deb/, "Types: deb-src"); print }' "$f"
    done >"$tmp/src.sources"
    for f in /etc/apt/sources.list $src_dir/*.list; do
        [ -f "$f" ] || continue
        sed -n '/debian/s/^[[:space:]]*deb[[:space:]]/deb-src /p' "$f"
    done >"$tmp/src.list"
    [ -s "$tmp/src.sources" ] && $SUDO install -m 644 "$tmp/src.sources" $src_dir/tallyd-deb-src.sources
    [ -s "$tmp/src.list" ] && $SUDO install -m 644 "$tmp/src.list" $src_dir/tallyd-deb-src.list
    rm -rf "$tmp"
    need_update=1
fi

[ -z "$missing" ] && [ -z "$need_update" ] && exit 0
$SUDO apt-get update -qq
[ -z "$missing" ] && exit 0
echo "deps: installing$missing"
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq $missing >/dev/null
