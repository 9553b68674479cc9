#!/usr/bin/env bash
# Installs the Debian/Ubuntu packages the build, the tests and the demo need.
# Idempotent and silent when everything is present; uses sudo when not root.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  qtbase5-dev qtbase5-dev-tools qttools5-dev-tools
  qtbase5-private-dev
  libssl-dev
  clang libclang-rt-dev
  xvfb xauth
  python3 python3-pil
  dpkg-dev file lintian desktop-file-utils appstream shared-mime-info
  libxml2-utils man-db xdg-utils
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q '^install ok installed$' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "install-deps: need root or sudo to install: ${missing[*]}" >&2; exit 1; }
  sudo="sudo"
fi
echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
