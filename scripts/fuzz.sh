#!/usr/bin/env bash
# Builds the fuzz targets with clang's libFuzzer (plus AddressSanitizer and UBSan) in build-fuzz/
# and runs each one, or the one named, for SECONDS (default 600) over its seed corpus, at low
# priority. New inputs that widen coverage go to build-fuzz/corpus/<target>/; crashes, leaks and
# hangs are written as files under build-fuzz/findings/<target>/ and make the script exit 1.
# Usage: scripts/fuzz.sh [TARGET|all] [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
missing=()
for p in clang-14 libclang-rt-14-dev; do
  [[ "$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null)" == "install ok installed" ]] || missing+=("$p")
done
if ((${#missing[@]})); then
  sudo_cmd=(); [[ $(id -u) -ne 0 ]] && sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
fi
target=${1:-all}
seconds=${2:-600}
CC=clang-14 CXX=clang++-14 cmake -S . -B build-fuzz -G Ninja -DVELT_FUZZ=ON \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
targets=(image_headers first_frame exif metadata png_chunks json_files)
[[ "$target" == all ]] || targets=("$target")
cmake --build build-fuzz --target "${targets[@]/#/fuzz_}" >&2
python3 tests/fuzz/make_seeds.py build-fuzz/seeds
declare -A corpus=([image_headers]=images [first_frame]=images [exif]=exif [metadata]=metadata
                   [png_chunks]=png_chunks [json_files]=json_files)
status=0
for t in "${targets[@]}"; do
  mkdir -p "build-fuzz/corpus/$t" "build-fuzz/findings/$t"
  echo "== fuzz_$t for ${seconds}s" >&2
  if ! LSAN_OPTIONS=suppressions="$PWD/tests/lsan.supp" nice -n 19 "build-fuzz/tests/fuzz/fuzz_$t" -max_total_time="$seconds" -timeout=10 \
      -rss_limit_mb=2048 -max_len=262144 -artifact_prefix="build-fuzz/findings/$t/" \
      "build-fuzz/corpus/$t" "build-fuzz/seeds/${corpus[$t]}" 2>"build-fuzz/fuzz_$t.log"; then
    status=1
  fi
  grep -E "^(#[0-9]+.*DONE|Done [0-9]+ runs)" "build-fuzz/fuzz_$t.log" | tail -1 >&2 || true
done
exit $status
