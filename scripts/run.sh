#!/usr/bin/env bash
# Installs what is missing, builds, and starts velt-compressor. Without arguments it watches
# ~/velt-drop (created if missing) in headless mode until Ctrl+C: drop an image there and watch
# it being compressed. With arguments they go to the program (see --help).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
./scripts/fetch-tools.sh
cmake -S . -B build -G Ninja >/dev/null
# Only the program, not the test suite: a first start is quick.
cmake --build build --target velt-compressor >&2
if [[ $# -eq 0 ]]; then
  drop="${HOME}/velt-drop"
  mkdir -p "$drop"
  echo "Watching $drop — drop an image there; Ctrl+C stops." >&2
  set -- --headless --watch "$drop"
fi
exec build/src/app/velt-compressor "$@"
