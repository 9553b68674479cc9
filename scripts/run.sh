#!/usr/bin/env bash
# `make run`: writes a few sample envelopes into <build>/demo, prints their
# passphrase and opens the program on that folder, ready for Decrypt.
set -euo pipefail

build=${1:-build}
program="$build/bin/nimbra-crypt"
writer="$build/bin/nm-envelope-writer"
demo="$build/demo"
passphrase="open sesame 42"

for tool in "$program" "$writer"; do
  [ -x "$tool" ] || { echo "run: $tool is missing; build first (make build)." >&2; exit 1; }
done

if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
  cat >&2 <<'MSG'
run: no display to open the window on (neither DISPLAY nor WAYLAND_DISPLAY is set).
  - On a desktop session, run `make run` from a terminal inside it.
  - Over SSH, connect with `ssh -X` (X forwarding) and run it again.
  - Headless, `xvfb-run -a make run` starts it on a virtual screen (nothing to see,
    but it proves it starts); tools/screenshots/take.sh photographs the windows there.
MSG
  exit 1
fi

# A fresh folder each time, so earlier outputs never collide with new ones.
rm -rf "$demo"
mkdir -p "$demo/plain" "$demo/more"
for name in letter notes budget recipe; do
  for i in $(seq 1 400); do
    echo "$name line $i: the quick brown fox jumps over the lazy dog."
  done > "$demo/plain/$name.txt"
done
"$writer" --input "$demo/plain/letter.txt" --passphrase "$passphrase" "$demo/letter.txt.nimbra-env" >/dev/null
"$writer" --input "$demo/plain/notes.txt" --passphrase "$passphrase" "$demo/notes.txt.nimbra-env" >/dev/null
"$writer" --input "$demo/plain/budget.txt" --md5 --passphrase "$passphrase" "$demo/budget.csv.nimbra-env" >/dev/null
"$writer" --input "$demo/plain/recipe.txt" --passphrase "$passphrase" "$demo/more/recipe.txt.nimbra-env" >/dev/null
"$writer" --size 48000000 --passphrase "$passphrase" "$demo/more/archive.bin.nimbra-env" >/dev/null
"$writer" --size 20000000 --passphrase "$passphrase" "$demo/more/photos.bin.nimbra-env" >/dev/null
rm -rf "$demo/plain"

cat <<MSG
Demo envelopes written to $demo:
$(cd "$demo" && find . -name '*.nimbra-env' | sort | sed 's/^/  /')

Passphrase:  $passphrase

Type it into the window and press Decrypt; the plaintexts appear next to
their envelopes. (Each run starts with a fresh demo folder.)
MSG

exec "$program" "$demo"
