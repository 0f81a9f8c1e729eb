#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole suite twice: once in an ordinary build and
# once under AddressSanitizer and UndefinedBehaviorSanitizer. After the ordinary suite the release
# packages are made from build/ and checked (tests/packaging/package_test.sh: lintian, validators,
# and, as root, installing and removing the .deb). Extra arguments go to ctest
# (e.g. scripts/test.sh -R History) and leave the package checks out.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
./scripts/fetch-tools.sh

configure_and_build() {
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
  cmake --build "$dir"
}

echo "== build (RelWithDebInfo)"
configure_and_build build
echo "== tests"
ctest --test-dir build --output-on-failure -j2 "$@"

if [[ $# -eq 0 ]]; then
  echo "== release packages"
  started=$SECONDS
  tests/packaging/package_test.sh build
  echo "== release packages checked in $((SECONDS - started)) s"
fi

echo "== build (AddressSanitizer + UndefinedBehaviorSanitizer)"
configure_and_build build-asan -DCMAKE_BUILD_TYPE=Debug -DVELT_SANITIZE=ON
echo "== tests under sanitizers"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  LSAN_OPTIONS=suppressions="$PWD/tests/lsan.supp" \
  ctest --test-dir build-asan --output-on-failure -j2 "$@"
