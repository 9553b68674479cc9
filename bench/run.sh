#!/usr/bin/env bash
# Runs every benchmark of a build: bench/run.sh [build-dir] [name-filter]
set -euo pipefail
build=${1:-build}
filter=${2:-}
status=0
for b in "$build"/bin/bench_*; do
  [ -x "$b" ] || continue
  case "$(basename "$b")" in *"$filter"*) ;; *) continue ;; esac
  echo "== $(basename "$b")"
  "$b" || status=1
done
exit $status
