#!/bin/sh
# make soak: the daemon at 60 times real speed under a controller of 200 APs
# and 1,000 clients (tallyd-sim: events, counters and flow files every daemon
# minute) and, at the same time, RATE datagrams a second of mixed events,
# counters batches and report requests (tallyd-load) for SECONDS seconds.
#   soak.sh BUILD [SECONDS [RATE]]     (defaults 60 and 10000)
# Passes when the daemon is still running and exits cleanly on SIGTERM, every
# request was answered exactly once and every flow file was taken in. Prints
# the rate and latency figures, the daemon's peak RSS and its RSS after the
# warm-up against at the end, and the processor time the daemon used (on a
# shared machine the rate reached depends on what else runs; the time per
# datagram much less). The root lives on /dev/shm, as the device keeps
# its databases in RAM.
set -u
build=$1 secs=${2:-60} rate=${3:-10000}
aps=200 clients=1000
root=$(mktemp -d /dev/shm/tallyd-soak-XXXXXX 2>/dev/null || mktemp -d /tmp/tallyd-soak-XXXXXX)
daemon="" sim="" sampler=""
cleanup() {
    for p in $sampler $sim $daemon; do kill "$p" 2>/dev/null; done
    wait 2>/dev/null
    [ -n "${SOAK_KEEP:-}" ] && echo "soak: root kept in $root" || rm -rf "$root"
}
trap cleanup EXIT INT TERM
fail() { echo "soak: FAILED: $*"; tail -5 "$root/daemon.log" 2>/dev/null; exit 1; }

export TALLYD_ROOT="$root" TALLYD_TIME_SCALE=60 TALLYD_TIME_ORIGIN="$(date +%s)"
"$build/tallyd-sim" --aps $aps --clients $clients --repo-only --quiet || fail "repository"
TALLYD_LOG=stderr "$build/tallyd" >"$root/daemon.out" 2>"$root/daemon.log" &
daemon=$!
i=0
until "$build/tallyctl" probe >/dev/null 2>&1; do
    i=$((i + 1)); [ $i -lt 50 ] || fail "the daemon does not answer its probe"; sleep 0.1
done

# A minute of daemon time is one real second: the simulator plays a minute
# more than the load lasts. The daemon lowers its own priority to the least
# (nice 19); the simulator and the load run there too, so that neither takes
# the processor from it just by being a normal process: at 60x a flow run's
# 12 daemon seconds are 0.2 s of real time, and a run that waits longer for
# the processor drops the files it has not reached.
nice -n 19 "$build/tallyd-sim" --aps $aps --clients $clients --minutes $((secs + 1)) >"$root/sim.log" 2>&1 &
sim=$!
( while kill -0 $daemon 2>/dev/null; do
      sed -n 's/^VmRSS:[[:space:]]*\([0-9]*\) kB/\1/p' /proc/$daemon/status; sleep 1
  done ) >"$root/rss.log" &
sampler=$!

nice -n 19 "$build/tallyd-load" --rate "$rate" --seconds "$secs" --aps $aps --clients $clients >"$root/load.out"
load_rc=$?
cat "$root/load.out"
load_line=$(head -1 "$root/load.out")
wait $sim || fail "the simulator stopped early: $(tail -1 "$root/sim.log")"
sim=""
sleep 3  # three flow task periods for the last files

kill -0 $daemon 2>/dev/null || fail "the daemon is gone"
peak=$(sed -n 's/^VmHWM:[[:space:]]*\([0-9]*\) kB/\1/p' /proc/$daemon/status)
# utime and stime, fields 14 and 15 of the stat line, in clock ticks.
ticks=$(awk '{print $14 + $15}' /proc/$daemon/stat)
kill -TERM $daemon
wait $daemon || fail "the daemon's exit status is $?"
daemon=""

files=$(sed -n 's/.* \([0-9]*\) flow files.*/\1/p' "$root/sim.log" | awk '{s += $1} END {print s + 0}')
left=$(ls "$root/etc/corvane-images/firmwares/avpd" | wc -l)
dropped=$(grep -c "handle flow, timeout\|failed to decode ARC" "$root/daemon.log")
warm=$(sed -n "$((secs / 4 + 1))p" "$root/rss.log")
last=$(tail -1 "$root/rss.log")
echo "soak: $files flow files written, $left left in the spool, $dropped runs that dropped files"
verdict=within; [ "$peak" -le 8192 ] || verdict=OVER
hz=$(getconf CLK_TCK)
echo "$ticks $hz $load_line" | awk '{cpu = $1 / $2; n = $4; printf "soak: the daemon used %.1f s of processor time, %.0f us for each datagram of the load (with the simulator traffic)\n", cpu, n ? cpu * 1e6 / n : 0}'
echo "soak: peak RSS $peak kB ($verdict the 8192 kB bound of the default platform); RSS after warm-up ($((secs / 4)) s) $warm kB, at the end $last kB"
[ "$load_rc" = 0 ] || fail "a request was not answered exactly once"
[ "$left" = 0 ] && [ "$dropped" = 0 ] || fail "flow files were not all taken in"
echo "soak: passed"
