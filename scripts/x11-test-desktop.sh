#!/usr/bin/env bash
# Starts a throwaway X11 desktop for zelk's integration tests and for trying zelk by hand: a virtual X
# server on a free display (kept alive when its last client leaves), the openbox window manager with
# four desktops and no key bindings, and, when given, the test client with its fake apps.
#
#   scripts/x11-test-desktop.sh [--client PATH --log DIR APP...]
#
# Prints "DISPLAY=:N" once the window manager runs, then stays until it gets SIGTERM or SIGINT, when it
# stops everything it started. Exits 3 when Xvfb isn't installed (scripts/deps.sh installs it).
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
command -v Xvfb >/dev/null || { echo "x11-test-desktop: Xvfb is not installed" >&2; exit 3; }
command -v openbox >/dev/null || { echo "x11-test-desktop: openbox is not installed" >&2; exit 3; }

client="" log="" apps=()
while [ $# -gt 0 ]; do
    case "$1" in
        --client) client="$2"; shift 2 ;;
        --log) log="$2"; shift 2 ;;
        *) apps+=("$1"); shift ;;
    esac
done

pids=()
cleanup() {
    for ((i=${#pids[@]}-1; i>=0; i--)); do kill "${pids[$i]}" 2>/dev/null || true; done
    wait 2>/dev/null || true
}
trap cleanup EXIT
trap 'exit 0' TERM INT

displayfile="$(mktemp)"
# -displayfd picks a free display and writes its number once the server accepts connections.
Xvfb -displayfd 3 -screen 0 1280x800x24 -noreset -nolisten tcp +extension RANDR 3>"$displayfile" 2>/dev/null &
pids+=($!)
for _ in $(seq 1 100); do
    [ -s "$displayfile" ] && break
    sleep 0.05
done
[ -s "$displayfile" ] || { echo "x11-test-desktop: Xvfb did not start" >&2; exit 1; }
export DISPLAY=":$(head -n1 "$displayfile")"
rm -f "$displayfile"

openbox --config-file "$here/x11/openbox-rc.xml" >/dev/null 2>&1 &
pids+=($!)
# The window manager is up once it publishes its desktops.
for _ in $(seq 1 100); do
    xprop -root _NET_NUMBER_OF_DESKTOPS 2>/dev/null | grep -q '= 4' && break
    sleep 0.05
done

if [ -n "$client" ]; then
    "$client" --log "${log:-.}" "${apps[@]}" &
    pids+=($!)
fi
echo "DISPLAY=$DISPLAY"
wait
