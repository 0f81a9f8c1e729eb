#!/usr/bin/env bash
# The manual page describes every option the program's --help names and every environment
# variable it reads, and renders without a warning from man.
# Usage: man_page_test.sh EXECUTABLE MAN_PAGE_SOURCE
set -euo pipefail
executable=$1
page=$2
help=$("$executable" --help)
status=0
while read -r option; do
  # roff writes a dash as "\-".
  escaped=${option//-/\\-}
  if ! grep -qF -- "$escaped" "$page"; then
    echo "the manual page does not describe $option" >&2
    status=1
  fi
done < <(grep -oE -- '(^|[ ,])--?[a-z][a-z-]*' <<<"$help" | tr -d ' ,' | sort -u)
while read -r variable; do
  grep -qF -- "$variable" "$page" || { echo "the manual page does not describe $variable" >&2; status=1; }
done < <(grep -oE 'VELT_[A-Z_]+' <<<"$help" | sort -u)
count=$(grep -cE -- '(^|[ ,])--?[a-z]' <<<"$help")
((count > 5)) || { echo "--help named only $count options; is it still the usage text?" >&2; status=1; }
if command -v man >/dev/null; then
  warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null)
  [[ -z "$warnings" ]] || { echo "man warns: $warnings" >&2; status=1; }
fi
exit $status
