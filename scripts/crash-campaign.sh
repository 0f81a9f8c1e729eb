#!/usr/bin/env bash
# The full crash campaign: installs what is missing, builds the program, and kills it with SIGKILL
# at every rename, link and unlink point of a run and at a spread of write points (strace fault
# injection), in four policy and format modes, and at RANDOM (default 200) random moments; after
# each kill and after each rerun it checks that nothing was lost, hidden or compressed twice.
# Usage: scripts/crash-campaign.sh [RANDOM] [SYSCALL_POINTS]
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
./scripts/fetch-tools.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build --target velt-compressor >&2
exec python3 tests/crash/crash_campaign.py build/src/app/velt-compressor \
    --random "${1:-200}" --syscall-points "${2:-8}" --seed "$(date +%s)" --quiet
