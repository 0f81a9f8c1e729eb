#!/usr/bin/env bash
# Installs what is missing, builds, assembles the corpus (first run) and prints the benchmark table.
# Arguments pick parts: perfile peers jobs throughput idle longrun memory latency savings quality,
# and the calibrate sweep (default: all but calibrate).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
./scripts/fetch-tools.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build >&2
exec python3 bench/benchmark.py "$@"
