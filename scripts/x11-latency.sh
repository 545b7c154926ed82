#!/usr/bin/env bash
# Measures key press -> activated window for the agent on the test desktop: two fake apps, the right
# Super key with each one's letter in turn, 100 presses by default. Build first (any build folder):
#   scripts/x11-latency.sh [BUILD_DIR] [PRESSES]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build/release}"
presses="${2:-100}"
work="$(mktemp -d)"
mkdir -p "$work/run" "$work/log" "$work/share"
chmod 700 "$work/run"
coproc DESK { exec bash "$root/scripts/x11-test-desktop.sh" --client "$build/tools/zelk-x11-test-client" \
    --log "$work/log" "Mail=Inbox" "Notes=Shopping"; }
read -r line <&"${DESK[0]}"
export DISPLAY="${line#DISPLAY=}"
export XDG_RUNTIME_DIR="$work/run" XDG_STATE_HOME="$work/state" XDG_CONFIG_HOME="$work/config" \
       XDG_DATA_DIRS="$work/share" XDG_DATA_HOME="$work/data" HOME="$work"
"$build/app/zelkd" --backend x11 --log-file "$work/zelkd.log" >/dev/null 2>&1 &
agent=$!
trap 'kill $agent $DESK_PID 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT
for _ in $(seq 1 200); do
    "$build/app/zelk" window list 2>/dev/null | grep -q Shopping && break
    sleep 0.05
done
window() { xwininfo -root -tree | awk -v t="\"$1\":" '$2 == t { print $1; exit }'; }
# Xvfb's default keymap: m is 58, n is 57.
"$build/tools/zelk-x11-latency" "58:$(window Inbox)" "57:$(window Shopping)" "$presses"
