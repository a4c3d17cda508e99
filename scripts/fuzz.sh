#!/bin/sh
# Runs the fuzz targets of a fuzz build (make fuzz-smoke, make fuzz).
#   fuzz.sh BUILD smoke SECONDS   each target SECONDS on the generated seeds, one
#                                 after the other; new inputs are thrown away
#   fuzz.sh BUILD long SECONDS    all targets at once under nice -n 10 for SECONDS,
#                                 new inputs kept in BUILD/fuzz/corpus/<target>
# Seeds and the message-id dictionary are generated afresh from the daemon's
# layouts (tallyd-fuzz-seeds). A crash, leak, sanitizer report or broken
# reply rule fails the run and leaves its input in BUILD/fuzz/artifacts.
set -e
build=$1 mode=$2 secs=$3
bin=$build/fuzz
seeds=$bin/seeds
rm -rf "$seeds"
"$bin/tallyd-fuzz-seeds" "$seeds" >/dev/null
logs=$bin/logs/$mode
mkdir -p "$bin/artifacts" "$logs"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

# target, its seed directory, the largest input worth trying
targets="control:control:8400 stat:stat:40000 monitor:monitor:600 flow:flow:16384 xrepo:xrepo:16384"

run() {  # name seeds max_len corpus
    $nice "$bin/fuzz_$1" -max_total_time="$secs" -max_len="$3" -dict="$seeds/msg_ids.dict" \
        -artifact_prefix="$bin/artifacts/$1-" -print_final_stats=1 -rss_limit_mb=2048 \
        "$4" "$seeds/$2" >"$logs/$1.log" 2>&1
}

execs() {  # name: executions the last run of the target reached
    sed -n 's/^stat::number_of_executed_units: *//p' "$logs/$1.log" | tail -1
}

status=0
nice=""
if [ "$mode" = smoke ]; then
    for t in $targets; do
        IFS=: read -r name dir len <<EOT
$t
EOT
        scratch=$(mktemp -d)
        if run "$name" "$dir" "$len" "$scratch"; then
            echo "fuzz-smoke: $name $(execs "$name") executions, no finding"
        else
            echo "fuzz-smoke: $name FAILED, see $logs/$name.log"
            tail -30 "$logs/$name.log"
            status=1
        fi
        rm -rf "$scratch"
    done
    exit $status
fi

nice="nice -n 10"
pids=""
for t in $targets; do
    IFS=: read -r name dir len <<EOT
$t
EOT
    mkdir -p "$bin/corpus/$name"
    ( run "$name" "$dir" "$len" "$bin/corpus/$name" && echo ok >"$logs/$name.rc" ||
      echo failed >"$logs/$name.rc" ) &
    pids="$pids $!"
done
wait $pids
for t in $targets; do
    name=${t%%:*}
    echo "fuzz: $name $(execs "$name") executions, corpus $(ls "$bin/corpus/$name" | wc -l) entries, $(cat "$logs/$name.rc")"
    [ "$(cat "$logs/$name.rc")" = ok ] || status=1
done
exit $status
