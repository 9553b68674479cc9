#!/usr/bin/env bash
# Runs each fuzz target for a bounded time: fuzz/run.sh <build-dir> <seconds>
# Corpora live in <build-dir>/fuzz-corpus/<target>, seeded from the regression
# folders; crashes land in <build-dir>/fuzz-artifacts (copy them to
# fuzz/regression/<target>/ once fixed, with their line in <target>.expected,
# which build/bin/fuzz_replay_<target> <file> prints).
set -euo pipefail
build=${1:?usage: fuzz/run.sh <build-dir> <seconds>}
seconds=${2:-60}
here=$(cd "$(dirname "$0")" && pwd)
bin="$build/bin"
corpus="$build/fuzz-corpus"
artifacts="$build/fuzz-artifacts"
mkdir -p "$corpus/trailer_walk" "$corpus/examine" "$artifacts"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
status=0
for t in trailer_walk examine; do
  echo "== fuzz_$t for ${seconds}s"
  max_len=$([ "$t" = trailer_walk ] && echo 12000 || echo 20000)
  log="$artifacts/$t.log"
  rc=0
  "$bin/fuzz_$t" -max_total_time="$seconds" -max_len="$max_len" -print_final_stats=1 \
    -artifact_prefix="$artifacts/$t-" "$corpus/$t" "$here/regression/$t" >"$log" 2>&1 || rc=$?
  grep -E '^(stat::number_of_executed_units|stat::peak_rss|SUMMARY|Done)|ERROR' "$log" || true
  [ $rc -eq 0 ] || { echo "fuzz_$t failed (exit $rc), see $log"; status=1; }
done
exit $status
