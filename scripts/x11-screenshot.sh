#!/usr/bin/env bash
# Makes the README's picture of the app panel on X11: the test desktop with a few fake apps, the agent
# on it, the right Super key held until the panel shows, the screen read and written as a PNG at half
# size. Build first (any build folder):
#   scripts/x11-screenshot.sh [BUILD_DIR] [OUT.png]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build/dev}"
out="${2:-$root/docs/x11-app-panel.png}"
work="$(mktemp -d)"
mkdir -p "$work/run" "$work/log" "$work/share"
chmod 700 "$work/run"
coproc DESK { exec bash "$root/scripts/x11-test-desktop.sh" --client "$build/tools/zelk-x11-test-client" \
    --log "$work/log" "Mail=Inbox,Drafts" "Notes=Shopping" "Calendar=Agenda" "Terminal=build" "Files=Home" \
    "Music=Library" "Chat=General" "Photos=Albums"; }
read -r line <&"${DESK[0]}"
export DISPLAY="${line#DISPLAY=}"
export XDG_RUNTIME_DIR="$work/run" XDG_STATE_HOME="$work/state" XDG_CONFIG_HOME="$work/config" \
       XDG_DATA_DIRS="$work/share" XDG_DATA_HOME="$work/data" HOME="$work"
# The app panel shows while the trigger is held once it is switched on.
mkdir -p "$work/state/zelk"
echo '{"showAppSwitcher": true}' >"$work/state/zelk/com.ferrowlabs.zelk.json"
"$build/app/zelkd" --backend x11 --log-file "$work/zelkd.log" >/dev/null 2>&1 &
agent=$!
trap 'kill $agent $DESK_PID 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT
for _ in $(seq 1 200); do
    "$build/app/zelk" window list 2>/dev/null | grep -q Albums && break
    sleep 0.05
done
"$build/app/zelk" app focus Notes >/dev/null
# 134 is the right Super key on Xvfb's default keymap.
"$build/tools/zelk-x11-screenshot" "$out" --hold 134 --wait-for "zelk panel" --scale 0.5 --root 3b5068
echo "wrote $out"
