#!/usr/bin/env bash
# Runs every benchmark of a build, then prints the figures that carry goals
# as one table: bench/run.sh [build-dir] [name-filter]
set -euo pipefail
build=${1:-build}
filter=${2:-}
status=0
table=$(mktemp)
trap 'rm -f "$table"' EXIT
for b in "$build"/bin/bench_*; do
  [ -x "$b" ] || continue
  case "$(basename "$b")" in *"$filter"*) ;; *) continue ;; esac
  echo "== $(basename "$b")"
  # Summary lines go to the table; everything else is shown as it comes.
  "$b" | while IFS= read -r line; do
    case "$line" in TABLE\|*) echo "${line#TABLE|}" >>"$table" ;; *) echo "$line" ;; esac
  done || status=1
done
echo
echo "== summary: median (range) over interleaved rounds, peak resident memory, goal"
while IFS='|' read -r name median low high unit peak goal; do
  printf '  %-52s %10s %-7s (%s .. %s)  %-10s %s\n' "$name" "$median" "$unit" "$low" "$high" \
    "${peak:--}" "${goal:+goal $goal}"
done <"$table"
exit $status
