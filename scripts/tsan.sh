#!/usr/bin/env bash
# Builds the plugin, the emulated host and the stress program with ThreadSanitizer (clang 14)
# into build-tsan/ and runs every registered method and RTFDataKXT on 8 threads at once: ROUNDS
# rounds in each of PROCESSES processes, every round on a fresh copy of the plugin, so the
# threads meet its lazily built state cold. Any report fails the run.
# Usage: scripts/tsan.sh [ROUNDS] [PROCESSES]
set -euo pipefail
cd "$(dirname "$0")/.."
rounds=${1:-3}
processes=${2:-3}
scripts/deps.sh clang-14 libclang-rt-14-dev
CC=clang-14 CXX=clang++-14 cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKXT_TSAN=ON -DKXT_TESTS=OFF >/dev/null
cmake --build build-tsan -j"$(nproc)" --target kxt_stress
export TSAN_OPTIONS="halt_on_error=1 exitcode=66 second_deadlock_stack=1 suppressions=$PWD/scripts/tsan.supp"
for ((p = 1; p <= processes; p++)); do
  echo "== process $p of $processes"
  build-tsan/stress/kxt_stress --threads 8 --rounds "$rounds" --scale 1/4096
done
