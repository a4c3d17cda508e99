#!/bin/sh
# Installs the Debian packages tallyd builds and tests with, only when one is
# missing; quiet when everything is already there. `deps.sh mips` adds what
# the MIPS cross build needs (scripts/deps-mips.sh). prometheus is there for
# promtool, with which the tests validate the output of tallyctl metrics;
# clang and its libFuzzer runtime (libclang-rt) for the fuzz targets.
set -e
if [ "$1" = mips ]; then
    "$0"
    exec "$(dirname "$0")/deps-mips.sh"
fi
pkgs="cmake ninja-build g++ pkg-config libsqlite3-dev sqlite3 libnanopb-dev nanopb
libpugixml-dev libgtest-dev libgmock-dev libbenchmark-dev clang-format
nlohmann-json3-dev libcairo2-dev prometheus clang libclang-rt-14-dev"
missing=""
for p in $pkgs; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0
echo "deps: installing$missing"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO=sudo
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq $missing >/dev/null
