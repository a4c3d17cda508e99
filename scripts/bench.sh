#!/bin/sh
# Runs every benchmark program of a bench build directory, one after another.
set -e
dir=${1:-build/bench}
found=0
for b in "$dir"/bench/*_bench; do
    [ -x "$b" ] || continue
    found=1
    echo "== $(basename "$b")"
    "$b"
done
[ "$found" = 1 ] || echo "bench: no benchmarks built in $dir/bench"
# The daemon's peak RSS at the default platform under the soak's load, for
# a shorter time.
echo "== memory under load (scripts/soak.sh $dir 20)"
"$(dirname "$0")/soak.sh" "$dir" 20 10000 | grep -v "^tallyd-sim" || true
