#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the benchmarks need.
# Idempotent: packages already present are not touched and apt is not called at all.
set -euo pipefail

packages=(build-essential cmake pkg-config qtbase5-dev zlib1g-dev libsodium-dev 7zip curl nginx-light
    g++-mingw-w64-x86-64-posix libdivsufsort-dev libz-mingw-w64-dev wine64)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
