#!/usr/bin/env bash
# Builds the plugin, the host and the tests with AddressSanitizer, UndefinedBehaviorSanitizer and
# LeakSanitizer (clang 14) into build-asan/ and runs every test there.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh clang-14 libclang-rt-14-dev
CC=clang-14 CXX=clang++-14 cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKXT_SANITIZE=ON >/dev/null
cmake --build build-asan -j"$(nproc)"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir build-asan --output-on-failure -j"$(nproc)"
