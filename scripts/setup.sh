#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the oracles need.
# Idempotent and non-interactive; run as root (or with sudo available).
set -euo pipefail

packages=(
  build-essential cmake ninja-build g++ clang libclang-rt-14-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  zlib1g-dev pkg-config libgmime-3.0-dev libcli11-dev nlohmann-json3-dev clang-format
  python3
  pst-utils pff-tools
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "setup: need root to install: ${missing[*]}" >&2; exit 1; }
  sudo="sudo"
fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
