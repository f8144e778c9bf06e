# Cross build for AArch64 Linux with Debian's cross compiler (g++-aarch64-linux-gnu), tested under
# user-mode emulation (qemu-user). Target libraries (Android's liblog, GoogleTest) come from Debian's
# multiarch arm64 packages and live in /usr/lib/aarch64-linux-gnu; scripts/install-deps.sh aarch64
# installs both the toolchain and those packages.
#
#   cmake -S . -B build/qa-aarch64 -G Ninja \
#         -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
#   ctest --test-dir build/qa-aarch64     # runs every test binary through qemu-aarch64

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(RYX_AARCH64_TRIPLE aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${RYX_AARCH64_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${RYX_AARCH64_TRIPLE}-g++)

# Debian's cross compiler uses / as its sysroot and searches the multiarch directories, so no
# CMAKE_SYSROOT: find_* must look in /usr/lib/aarch64-linux-gnu and never in the host's
# /usr/lib/x86_64-linux-gnu.
set(CMAKE_LIBRARY_ARCHITECTURE ${RYX_AARCH64_TRIPLE})
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu /lib/x86_64-linux-gnu
    /usr/lib/x86_64-linux-gnu/cmake /usr/lib/x86_64-linux-gnu/android)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

# Every test (and gtest's list step at ctest time) runs under the emulator. -L makes the cross
# runtime's dynamic loader the guest's. LD_LIBRARY_PATH keeps the C library of that same runtime
# (the one the cross linker links against): once multiarch libc6:arm64 is installed, ld.so.cache
# would otherwise hand the loader a libc of another build, and a forked child (gtest's death
# tests) then spins forever in the loader/libc mismatch. QEMU_LD_PREFIX, passed in the guest's
# environment, gives a test binary that re-executes itself (gtest's "threadsafe" death tests,
# through binfmt_misc, which scripts/ci-aarch64.sh registers) the same loader.
find_program(RYX_QEMU_AARCH64 qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${RYX_QEMU_AARCH64} -L /usr/${RYX_AARCH64_TRIPLE}
    -E LD_LIBRARY_PATH=/usr/${RYX_AARCH64_TRIPLE}/lib
    -E QEMU_LD_PREFIX=/usr/${RYX_AARCH64_TRIPLE})
