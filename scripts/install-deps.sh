#!/usr/bin/env bash
# Installs the Debian packages this project builds and tests with. Idempotent, no prompts.
# As root it installs with apt-get, otherwise through sudo; with neither it prints the one
# apt-get command to run as root and fails.
# Usage: scripts/install-deps.sh [core|aarch64|fuzz|bench|abi|android-bp|clang|all]
#   core:    (default) what the library, its tests and the simulator need: the README's commands
#   aarch64: core, plus the AArch64 cross build: cross compiler, user-mode emulator and the
#            arm64 builds of liblog, GoogleTest and libarchive (Debian multiarch: adds the arm64
#            architecture to dpkg once)
#   fuzz:    core, plus clang 14 with its libFuzzer and sanitizer runtimes and llvm-cov
#   bench:   core, plus the benchmark peer (ROS message_filters) and valgrind for profiles
#   abi:     core, plus libabigail's abidw and abidiff
#   android-bp: core, plus Debian's mini-soong and libcutils for the Android.bp build
#   clang:   core, plus clang (the thread-safety build) and clang-format
#   all:     everything above
set -euo pipefail
what="${1:-core}"
core=(build-essential cmake ninja-build pkg-config
      libgtest-dev libgmock-dev libbenchmark-dev
      android-liblog-dev libcli11-dev nlohmann-json3-dev libarchive-dev python3
      python3-jsonschema)
aarch64=(g++-aarch64-linux-gnu qemu-user qemu-user-binfmt
         android-liblog-dev:arm64 libgtest-dev:arm64 libarchive-dev:arm64)
fuzz=(clang-14 libclang-rt-14-dev llvm-14 python3)
bench=(libmessage-filters-dev valgrind python3)
abi=(abigail-tools)
android_bp=(android-libcutils-dev mini-soong)
clang=(clang clang-format)
case "$what" in
    core) pkgs=("${core[@]}") ;;
    aarch64) pkgs=("${core[@]}" "${aarch64[@]}") ;;
    fuzz) pkgs=("${core[@]}" "${fuzz[@]}") ;;
    bench) pkgs=("${core[@]}" "${bench[@]}") ;;
    abi) pkgs=("${core[@]}" "${abi[@]}") ;;
    android-bp) pkgs=("${core[@]}" "${android_bp[@]}") ;;
    clang) pkgs=("${core[@]}" "${clang[@]}") ;;
    all) pkgs=("${core[@]}" "${aarch64[@]}" "${fuzz[@]}" "${bench[@]}" "${abi[@]}"
               "${android_bp[@]}" "${clang[@]}") ;;
    *) echo "usage: $0 [core|aarch64|fuzz|bench|abi|android-bp|clang|all]" >&2; exit 2 ;;
esac
export DEBIAN_FRONTEND=noninteractive
add_arm64=no
if { [ "$what" = aarch64 ] || [ "$what" = all ]; } && ! dpkg --print-foreign-architectures | grep -qx arm64; then
    add_arm64=yes
fi
missing=()
for p in "${pkgs[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ "${#missing[@]}" -eq 0 ] && [ $add_arm64 = no ]; then
    exit 0
fi
if [ "$(id -u)" -eq 0 ]; then
    SUDO=()
elif command -v sudo >/dev/null 2>&1; then
    SUDO=(sudo)
else
    command="apt-get update && apt-get install -y --no-install-recommends ${missing[*]}"
    [ $add_arm64 = no ] || command="dpkg --add-architecture arm64 && $command"
    echo "install-deps: not root and no sudo; as root, run: $command" >&2
    exit 1
fi
if [ $add_arm64 = yes ]; then
    echo "install-deps: adding dpkg architecture arm64"
    "${SUDO[@]}" dpkg --add-architecture arm64
fi
echo "install-deps: installing ${missing[*]}"
"${SUDO[@]}" apt-get update -qq
"${SUDO[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
