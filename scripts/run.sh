#!/usr/bin/env bash
# Installs what is missing, builds, and starts velt-compressor with the given arguments.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
./scripts/fetch-tools.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build >&2
exec build/src/app/velt-compressor "$@"
