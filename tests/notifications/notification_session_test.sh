#!/bin/sh
# A real desktop session in miniature: a private session bus, an X server and Debian's
# notification daemon. The probe must be accepted by the daemon, and the bus must carry exactly
# one Notify call for the failed file, with the program's icon, although the probe sent the
# event twice.
# Usage: notification_session_test.sh PROBE. Exits 77 (skipped) when a tool is missing.
set -u
probe="$1"
daemon=/usr/lib/notification-daemon/notification-daemon

if [ "${2:-}" != "--inside" ]; then
    for tool in dbus-run-session dbus-monitor dbus-send Xvfb; do
        command -v "$tool" >/dev/null 2>&1 || { echo "skipped: $tool is not installed"; exit 77; }
    done
    [ -x "$daemon" ] || { echo "skipped: $daemon is not installed"; exit 77; }
    exec dbus-run-session -- sh "$0" "$probe" --inside
fi

work=$(mktemp -d)
pids=""
cleanup() {
    for pid in $pids; do kill "$pid" 2>/dev/null; done
    wait 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT

# Waits up to 10 s for a command to succeed.
await() {
    i=0
    until "$@" >/dev/null 2>&1; do
        i=$((i + 1))
        [ "$i" -ge 100 ] && return 1
        sleep 0.1
    done
}

Xvfb -displayfd 3 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
pids="$pids $!"
await test -s "$work/display" || { echo "Xvfb did not start"; cat "$work/xvfb.log"; exit 1; }
DISPLAY=":$(cat "$work/display")"
export DISPLAY

dbus-monitor --session "type=method_call,interface=org.freedesktop.Notifications,member=Notify" \
    >"$work/monitor" 2>&1 &
pids="$pids $!"
"$daemon" >"$work/daemon.log" 2>&1 &
pids="$pids $!"
owned() {
    dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
        org.freedesktop.DBus.NameHasOwner string:org.freedesktop.Notifications | grep -q "boolean true"
}
await owned || { echo "the notification daemon did not take its name"; cat "$work/daemon.log"; exit 1; }

VELT_CONFIG_DIR="$work" VELT_LOG_DIR="$work" "$probe"
status=$?
sleep 0.3  # let the monitor write out the last call
echo "--- Notify calls seen on the bus:"
cat "$work/monitor"
[ "$status" -eq 0 ] || { echo "the probe failed"; exit 1; }

calls=$(grep -c "member=Notify" "$work/monitor")
titles=$(grep -c 'string "Could not compress file"' "$work/monitor")
[ "$calls" -eq 1 ] || { echo "expected one Notify call, saw $calls"; exit 1; }
[ "$titles" -eq 1 ] || { echo "the Notify call did not carry the title"; exit 1; }
# The third argument is the program's icon: a file of ours that exists, or its theme name.
icon=$(grep -A3 "member=Notify" "$work/monitor" | sed -n 4p | sed -e 's/^ *string "//' -e 's/"$//')
case "$icon" in
    file://*) [ -s "${icon#file://}" ] || { echo "the icon $icon does not exist"; exit 1; } ;;
    velt-compressor) ;;
    *) echo "the Notify call carried no icon of ours: '$icon'"; exit 1 ;;
esac
echo "one notification delivered"
