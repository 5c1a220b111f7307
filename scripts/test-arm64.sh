#!/usr/bin/env bash
# Cross-builds for ARM64 and runs the whole test suite under qemu-user.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build-arm64.sh
ctest --test-dir build-arm64 --output-on-failure -j"$(nproc)"
