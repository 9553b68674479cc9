#!/usr/bin/env bash
# Photographs the program's windows on a virtual X screen (Xvfb):
#   main-empty, main-batch (mid-batch), main-finished-question and
#   main-finished (a batch with one failure), settings, busy, about.
# Usage: tools/screenshots/take.sh [build-dir] [output-dir]
# nimbra-crypt-shots (the program with a scripted scene, Shots.cpp) grabs
# its own windows; settings go to a throw-away folder.
set -euo pipefail

build=${1:-build}
out=${2:-$build/screenshots}
program="$build/bin/nimbra-crypt-shots"
writer="$build/bin/nm-envelope-writer"
command -v xvfb-run >/dev/null || { echo "take.sh: xvfb-run is missing (apt-get install xvfb xauth)" >&2; exit 1; }
for tool in "$program" "$writer"; do
  [ -x "$tool" ] || { echo "take.sh: $tool is missing; build first" >&2; exit 1; }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$out" "$work/config" "$work/envelopes"
passphrase="screenshot passphrase"

# Big enough that one thread is still busy when the picture is taken.
for i in 1 2 3 4 5 6; do
  "$writer" --size 30000000 --seed "$i" --passphrase "$passphrase" "$work/envelopes/report-$i.pdf.nimbra-env" >/dev/null
done
"$writer" --size 2000000 --passphrase "another passphrase" "$work/envelopes/from-someone-else.doc.nimbra-env" >/dev/null

run_scene() {
  XDG_CONFIG_HOME="$work/config" xvfb-run -a -s "-screen 0 1280x900x24" timeout 120 "$program" "$@"
}

run_scene dialogs "$out"
run_scene batch "$out" "$passphrase" "$work/envelopes"
ls -1 "$out"/*.png
