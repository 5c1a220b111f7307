# Cross-building for Linux ARM64 with Debian's crossbuild-essential-arm64 and multiarch
# libraries (libffi-dev:arm64). Programs the build runs (test discovery, CTest) go through
# qemu-user, so no binfmt_misc registration is needed. The cross C library comes first on the
# library path: the cross loader with the multiarch libc6:arm64 (another point release, pulled
# in by libffi-dev:arm64) hangs every fork and pthread_create.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /usr/aarch64-linux-gnu -E
    LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib)
