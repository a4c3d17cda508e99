#!/bin/bash
# A guided tour of tallyd: start the daemon in a sandbox root, talk to it
# with tallyctl, show what it logs, stop it.
#
#   ./scripts/demo.sh BUILD_DIR        (make demo calls it with "build")
#
# Everything happens under BUILD_DIR/demo-root, wiped first; nothing outside
# it is touched. Each section below prints a heading and what it shows.
set -euo pipefail
cd "$(dirname "$0")/.."

BUILD=${1:-build}
TALLYD="$BUILD/tallyd"
TALLYCTL="$BUILD/tallyctl"
ROOT="$(pwd)/$BUILD/demo-root"
LOG="$ROOT/tallyd.log"
PID=""

section() { printf '\n== %s\n' "$*"; }
# Prints the daemon's log lines that appeared since the last call.
LOG_SHOWN=0
show_log() {
    sleep 0.3
    local total
    total=$(wc -l <"$LOG")
    if [ "$total" -gt "$LOG_SHOWN" ]; then
        tail -n "+$((LOG_SHOWN + 1))" "$LOG" | sed 's/^/   tallyd> /'
    fi
    LOG_SHOWN=$total
}
ctl() {
    echo "\$ tallyctl $*"
    "$TALLYCTL" --root "$ROOT" "$@" | sed 's/^/   /'
}
cleanup() {
    if [ -n "$PID" ] && kill -0 "$PID" 2>/dev/null; then kill -KILL "$PID"; fi
}
trap cleanup EXIT

for bin in "$TALLYD" "$TALLYCTL"; do
    [ -x "$bin" ] || { echo "demo: $bin is missing; run make build first" >&2; exit 1; }
done

# ---------------------------------------------------------------------------
section "Start tallyd in the sandbox root $ROOT"
rm -rf "$ROOT"
mkdir -p "$ROOT"
TALLYD_ROOT="$ROOT" TALLYD_LOG=stderr "$TALLYD" >"$ROOT/tallyd.out" 2>"$LOG" &
PID=$!
for _ in $(seq 100); do
    "$TALLYCTL" --root "$ROOT" probe >/dev/null 2>&1 && break
    sleep 0.1
done
echo "tallyd runs as pid $PID; it printed:"
sed 's/^/   /' "$ROOT/tallyd.out"
echo "files it made:"
(cd "$ROOT" && find var tmp etc -type f -o -type s | sort | sed 's/^/   /')
show_log

# ---------------------------------------------------------------------------
section "Is it alive? The monitor probe"
ctl probe

# ---------------------------------------------------------------------------
section "Bad datagrams are logged and dropped"
echo "A datagram of 5 bytes, shorter than any header:"
ctl send --raw --hex "01 02 03 04 05"
show_log
echo "A header whose length field (9) does not match the 2 bytes that follow:"
ctl send --id TALLYD_MSG_AP_ADD --hex "00 00" --length 9 --module 4
show_log
echo "An id the control socket does not know:"
ctl send --id 0x03000047 --module 7
show_log
echo "A statistics id sent to the control socket:"
ctl send --id TALLYD_MSG_CLIENT_STATS --module 7
show_log

# ---------------------------------------------------------------------------
section "Stop tallyd with SIGTERM"
kill -TERM "$PID"
status=0
wait "$PID" || status=$?
PID=""
echo "exit status $status; pid file left behind: $([ -e "$ROOT/var/run/tac/tallyd.pid" ] && echo yes || echo no)"
show_log

# ===========================================================================
# A controller at 60 times the speed: tallyd-sim plays 20 APs and 200
# clients (events, counters batches and their flow reports) for an hour and
# a half of daemon time (90 real seconds), then on to the first day run at
# 7,217 s. Its own root, so the tour above stays as it was.
FLOW_ROOT="$ROOT/pipeline"
SIM="$BUILD/tallyd-sim"
SCALE=60
GEN=""
cleanup_flow() {
    if [ -n "$GEN" ] && kill -0 "$GEN" 2>/dev/null; then kill -TERM "$GEN"; fi
    cleanup
}
trap cleanup_flow EXIT
# Sleeps until the daemon has run for $1 seconds of its own time.
FLOW_START_MS=0
until_daemon_time() {
    local due=$((FLOW_START_MS + $1 * 1000 / SCALE)) now
    now=$(date +%s%3N)
    [ "$due" -le "$now" ] || sleep "$(awk "BEGIN { print ($due - $now) / 1000 }")"
}
tables() {
    printf -- '-- after %d min %02d s of daemon time\n' $(($1 / 60)) $(($1 % 60))
    echo "\$ tallyctl tables"
    "$TALLYCTL" --root "$FLOW_ROOT" tables | sed 's/^/   /'
}

section "A controller: tallyd with TALLYD_TIME_SCALE=$SCALE in $FLOW_ROOT"
[ -x "$SIM" ] || { echo "demo: $SIM is missing; run make build first" >&2; exit 1; }
mkdir -p "$FLOW_ROOT"
# The configuration lists first, so that the new statistic database starts
# with the AP groups' WLANs; daemon and simulator share one clock.
"$SIM" --root "$FLOW_ROOT" --aps 20 --clients 200 --ssids 4 --repo-only --quiet
ORIGIN=$(date +%s)
export TALLYD_TIME_SCALE=$SCALE TALLYD_TIME_ORIGIN=$ORIGIN
TALLYD_ROOT="$FLOW_ROOT" TALLYD_LOG=stderr "$TALLYD" \
    >"$FLOW_ROOT/tallyd.out" 2>"$FLOW_ROOT/tallyd.log" &
PID=$!
FLOW_START_MS=$((ORIGIN * 1000))
until "$TALLYCTL" --root "$FLOW_ROOT" probe >/dev/null 2>&1; do sleep 0.1; done
echo "tallyd runs as pid $PID; every daemon minute tallyd-sim sends the AP and station"
echo "events of the minute, the counters batch of the last one, and writes a flow"
echo "report per AP for the same clients, for 90 minutes"
"$SIM" --root "$FLOW_ROOT" --aps 20 --clients 200 --ssids 4 --minutes 90 --quiet &
GEN=$!
echo "AP events fill avp_ap and statis_ap_wlan; joins and counters batches fill"
echo "statis_client_info_h and statis_client_h. Every 59 s the flow task takes the"
echo "spool into avp_base; every 300 s the hour task rolls it into five-minute"
echo "buckets; at 3,587 s the backup task folds the"
echo "last hour into avp_backup_hour.db; at 7,217 s the day task sums the backups"
echo "into the day tables and starts a fresh backup database."
for t in 660 3660 5400; do
    until_daemon_time "$t"
    tables "$t"
done
wait "$GEN" || true
GEN=""
until_daemon_time 7260
tables 7260

# ---------------------------------------------------------------------------
section "Reports of the simulated traffic, as the management daemon asks for them"
report() {
    echo "\$ tallyctl $*"
    "$TALLYCTL" --root "$FLOW_ROOT" "$@" | sed 's/^/   /'
}
report top --period day --list apps
report top --period day --list clients
report top --list aps
report top --list ssids
report usage --pie apps --png "$ROOT/apps.png"
report usage --series --png "$ROOT/usage.png"
echo "pictures: $ROOT/apps.png (applications of the day), $ROOT/usage.png (the last hour)"

# ---------------------------------------------------------------------------
section "Wireless statistics: the client list, summaries and charts"
echo "Fed only by the controller's messages, the daemon never fills the AP traffic tables"
echo "(statis_ap_h, statis_ap_d) or the chart table (statis_ap_chart). The client list and the"
echo "summaries measure against the AP traffic, so here they answer without data:"
report clients
report client-summary
STAT_DB="$FLOW_ROOT/tmp/tallyd/statistic.db"
echo "Filled by this demo from the stations' own counters (each client's AP and SSID from the"
echo "client directory), in five-minute steps, as AP statistics would fill them:"
sqlite3 -cmd ".timeout 5000" "$STAT_DB" "
INSERT INTO statis_ap_h(time, ap_id, ssid_id, apgroup_id, wlangroup_id,
                        tx_bytes, rx_bytes, total_bytes)
  SELECT h.time - h.time % 300, i.ap_id, i.ssid_id, h.apgroup_id, h.wlangroup_id,
         SUM(h.tx_bytes), SUM(h.rx_bytes), SUM(h.total_bytes)
  FROM statis_client_h h JOIN statis_client_info_h i USING(client_mac) GROUP BY 1, 2, 3;
INSERT INTO statis_ap_chart(time, ap_id, apgroup_id, tx_bytes, rx_bytes, client_count)
  SELECT h.time - h.time % 300, i.ap_id, h.apgroup_id, SUM(h.tx_bytes), SUM(h.rx_bytes),
         COUNT(DISTINCT h.client_mac)
  FROM statis_client_h h JOIN statis_client_info_h i USING(client_mac) GROUP BY 1, 2;"
report clients | head -8 || true  # the first clients
report ap-stats --top 5
report client-summary --top 5
"$TALLYCTL" --root "$FLOW_ROOT" ap-chart --day --png "$ROOT/ap-chart.png" >/dev/null
echo "picture: $ROOT/ap-chart.png (the traffic of all APs over the day, five-minute steps)"

# ---------------------------------------------------------------------------
section "The same databases as OpenMetrics for Prometheus: tallyctl metrics (a few lines)"
echo "\$ tallyctl metrics --top 3 | grep -E '^tallyd_(up|app_hour_bytes|ap_clients|db_file)'"
"$TALLYCTL" --root "$FLOW_ROOT" metrics --top 3 |
    grep -E '^tallyd_(up|app_hour_bytes|ap_clients|db_file)' | sed 's/^/   /'

kill -TERM "$PID"
status=0
wait "$PID" || status=$?
PID=""
echo "tallyd stopped with status $status; errors it logged:"
grep -E '^3 ' "$FLOW_ROOT/tallyd.log" | sed 's/^/   /' || echo "   none"
