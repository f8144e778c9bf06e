#!/usr/bin/env bash
# Installs the Debian packages this project builds and tests with. Idempotent, no prompts.
# Usage: scripts/install-deps.sh [core|all]   (default: core)
#   core: what the library, its tests and the simulator need
#   all:  also the quality gates (cross compiler, emulator, benchmark peer)
set -euo pipefail
what="${1:-core}"
core=(build-essential cmake ninja-build pkg-config python3 dpkg-dev
      libgtest-dev libgmock-dev libbenchmark-dev
      android-liblog-dev android-libcutils-dev mini-soong
      libcli11-dev nlohmann-json3-dev clang clang-format)
extra=(clang-14 libclang-rt-14-dev g++-aarch64-linux-gnu qemu-user libmessage-filters-dev)
pkgs=("${core[@]}")
[ "$what" = all ] && pkgs+=("${extra[@]}")
missing=()
for p in "${pkgs[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ "${#missing[@]}" -eq 0 ]; then
    exit 0
fi
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
echo "install-deps: installing ${missing[*]}"
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
