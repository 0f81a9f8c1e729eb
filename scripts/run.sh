#!/usr/bin/env bash
# Installs what is missing, builds, and starts velt-compressor. Without arguments, in a desktop
# session, it starts the desktop program (tray icon and panel); without a desktop it watches
# ~/velt-drop (created if missing) in headless mode until Ctrl+C. With arguments they go to the
# program (see --help).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
./scripts/fetch-tools.sh
cmake -S . -B build -G Ninja >/dev/null
# Only the program (and its icons), not the test suite: a first start is quick.
cmake --build build --target velt-compressor >&2
if [[ $# -eq 0 && -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]]; then
  echo "Starting the desktop program: its icon is in the system tray (a window without one)." >&2
elif [[ $# -eq 0 ]]; then
  drop="${HOME}/velt-drop"
  mkdir -p "$drop"
  echo "No desktop session: watching $drop — drop an image there; Ctrl+C stops." >&2
  set -- --headless --watch "$drop"
fi
exec build/src/app/velt-compressor "$@"
