#!/usr/bin/env bash
# Cross-builds the plugin, the emulated host, the kxt tool and the tests for Linux ARM64 into
# build-arm64/ (the plugin: build-arm64/libKXTString.Linux32.so.21160). Installs the cross
# compiler, libffi for arm64 (multiarch), GoogleTest's sources and qemu-user if missing.
set -euo pipefail
cd "$(dirname "$0")/.."
if ! dpkg --print-foreign-architectures | grep -qx arm64; then
  sudo=""
  [[ $(id -u) -ne 0 ]] && sudo="sudo"
  $sudo dpkg --add-architecture arm64
  $sudo apt-get update -qq
fi
scripts/deps.sh crossbuild-essential-arm64 libffi-dev:arm64 googletest qemu-user
cmake -S . -B build-arm64 -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake >/dev/null
cmake --build build-arm64 -j"$(nproc)"
