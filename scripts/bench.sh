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
