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
