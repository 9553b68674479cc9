#!/usr/bin/env bash
# Photographs the program's windows on a virtual X screen (Xvfb):
#   main-empty, main-batch (mid-batch), main-finished-question and
#   main-finished (a batch with one failure), main-table-focus (the same
#   with the keyboard focus in the table), settings, busy, about;
# once as a light desktop in English at normal density (into OUT), then in
# OUT/dark (a dark palette), OUT/2x (twice the density), OUT/de (German) and
# OUT/de-dark-2x (all three at once).
# Usage: tools/screenshots/take.sh [build-dir] [output-dir]
# nimbra-crypt-shots (the program with a scripted scene, Shots.cpp) grabs
# its own windows; settings go to a throw-away folder. One envelope's name
# mixes German, Japanese and an emoji; fonts for those are installed when
# missing (as root) so the pictures show them rather than empty boxes.
set -euo pipefail

build=${1:-build}
out=${2:-$build/screenshots}
program="$build/bin/nimbra-crypt-shots"
writer="$build/bin/nm-envelope-writer"
command -v xvfb-run >/dev/null || { echo "take.sh: xvfb-run is missing (apt-get install xvfb xauth)" >&2; exit 1; }
for tool in "$program" "$writer"; do
  [ -x "$tool" ] || { echo "take.sh: $tool is missing; build first" >&2; exit 1; }
done

fonts=(fonts-wqy-microhei fonts-noto-color-emoji)
missing=()
for f in "${fonts[@]}"; do
  dpkg-query -W -f='${Status}' "$f" 2>/dev/null | grep -q '^install ok installed$' || missing+=("$f")
done
if [ ${#missing[@]} -gt 0 ]; then
  if [ "$(id -u)" -eq 0 ]; then
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
  else
    echo "take.sh: without ${missing[*]} the Japanese and emoji characters show as boxes" >&2
  fi
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/config" "$work/envelopes"
passphrase="screenshot passphrase"

# Big enough that one thread is still busy when the picture is taken.
for i in 1 2 3 4 5; do
  "$writer" --size 30000000 --seed "$i" --passphrase "$passphrase" "$work/envelopes/report-$i.pdf.nimbra-env" >/dev/null
done
"$writer" --size 30000000 --seed 6 --passphrase "$passphrase" "$work/envelopes/Grüße-日本-😀.txt.nimbra-env" >/dev/null
"$writer" --size 2000000 --passphrase "another passphrase" "$work/envelopes/from-someone-else.doc.nimbra-env" >/dev/null

# run_variant SUBDIR [--dark] [VAR=VALUE...] --: both scenes, into OUT/SUBDIR.
run_variant() {
  local dir="$out/$1"; shift
  local envs=() opts=()
  while [ "$1" != "--" ]; do
    case "$1" in --*) opts+=("$1") ;; *) envs+=("$1") ;; esac
    shift
  done
  shift
  mkdir -p "$dir"
  rm -rf "$work/config"/* "$work/envelopes"/*.pdf "$work/envelopes"/*.txt "$work/envelopes"/*.doc
  for scene in dialogs batch; do
    local args=("$scene" "$dir")
    [ "$scene" = batch ] && args+=("$passphrase" "$work/envelopes")
    env XDG_CONFIG_HOME="$work/config" LANG=C.UTF-8 "${envs[@]}" \
      xvfb-run -a -s "-screen 0 1280x900x24" timeout 120 "$program" "${opts[@]}" "${args[@]}"
  done
}

run_variant . --
run_variant dark --dark --
run_variant 2x QT_SCALE_FACTOR=2 --
run_variant de LC_ALL=de_DE.UTF-8 --
run_variant de-dark-2x --dark LC_ALL=de_DE.UTF-8 QT_SCALE_FACTOR=2 --
find "$out" -name '*.png' | sort
