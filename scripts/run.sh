#!/usr/bin/env bash
# Reports what the build produced. Replaced by starting the window once the
# program exists.
set -euo pipefail
build=${1:-build}
echo "Built in $build:"
find "$build" -maxdepth 2 \( -name '*.a' -o -path "$build/bin/*" \) -type f -printf '  %p\n' | sort
