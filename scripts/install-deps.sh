#!/usr/bin/env bash
# Installs the Debian packages this project builds and tests with. Idempotent, no prompts.
# Usage: scripts/install-deps.sh [core|aarch64|fuzz|bench|all]   (default: core)
#   core:    what the library, its tests and the simulator need
#   aarch64: core, plus the AArch64 cross build: cross compiler, user-mode emulator and the
#            arm64 builds of Android's liblog and GoogleTest (Debian multiarch: adds the arm64
#            architecture to dpkg once)
#   fuzz:    core, plus clang 14 with its libFuzzer and sanitizer runtimes and llvm-cov
#   bench:   core, plus the benchmark peer (ROS message_filters) and valgrind for profiles
#   all:     everything above
set -euo pipefail
what="${1:-core}"
core=(build-essential cmake ninja-build pkg-config python3 dpkg-dev
      libgtest-dev libgmock-dev libbenchmark-dev
      android-liblog-dev android-libcutils-dev mini-soong
      libcli11-dev nlohmann-json3-dev clang clang-format)
aarch64=(g++-aarch64-linux-gnu qemu-user qemu-user-binfmt
         android-liblog-dev:arm64 libgtest-dev:arm64)
fuzz=(clang-14 libclang-rt-14-dev llvm-14)
bench=(libmessage-filters-dev valgrind)
case "$what" in
    core) pkgs=("${core[@]}") ;;
    aarch64) pkgs=("${core[@]}" "${aarch64[@]}") ;;
    fuzz) pkgs=("${core[@]}" "${fuzz[@]}") ;;
    bench) pkgs=("${core[@]}" "${bench[@]}") ;;
    all) pkgs=("${core[@]}" "${aarch64[@]}" "${fuzz[@]}" "${bench[@]}") ;;
    *) echo "usage: $0 [core|aarch64|fuzz|bench|all]" >&2; exit 2 ;;
esac
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
if { [ "$what" = aarch64 ] || [ "$what" = all ]; } && ! dpkg --print-foreign-architectures | grep -qx arm64; then
    echo "install-deps: adding dpkg architecture arm64"
    $SUDO dpkg --add-architecture arm64
fi
missing=()
for p in "${pkgs[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ "${#missing[@]}" -eq 0 ]; then
    exit 0
fi
echo "install-deps: installing ${missing[*]}"
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
