#!/usr/bin/env bash
# Builds the stress program and runs every registered method, and RTFDataKXT read and assigned,
# on huge inputs, one case at a time in a child process of its own, and writes the table to
# stress/RESULTS.md. SCALE 1 (the default) is 64 MiB inputs with 10 million line ends, entities
# or escapes; it takes a few minutes and up to about 10 GiB (ten million style runs in the
# host). CTest runs the same program at 1/64.
#   scripts/stress.sh              # full size
#   scripts/stress.sh 1/8          # an eighth
#   scripts/stress.sh 1 --only RTFDataKXT     # extra arguments go to the program
set -euo pipefail
cd "$(dirname "$0")/.."
scale=${1:-1}
shift || true
scripts/build.sh
build/stress/kxt_stress --scale "$scale" --results stress/RESULTS.md "$@"
