#!/usr/bin/env bash
# Builds the libFuzzer harnesses (clang 14, ASan + UBSan) into build-fuzz/ and runs each for the
# given number of seconds (default 600), starting from the committed seeds in fuzz/corpus/ and
# growing a working corpus in build-fuzz/corpus/. A crash leaves its input in build-fuzz/ and
# fails the script.
#   scripts/fuzz.sh 30                     a short run of every harness (as CI does)
#   scripts/fuzz.sh 3600 host_call_fuzz    one harness for an hour
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-600}
shift || true
scripts/deps.sh clang-14 libclang-rt-14-dev
CC=clang-14 CXX=clang++-14 cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKXT_SANITIZE=ON -DKXT_FUZZ=ON -DKXT_TESTS=OFF >/dev/null
cmake --build build-fuzz -j"$(nproc)"
harnesses=("$@")
if ((${#harnesses[@]} == 0)); then
  for f in fuzz/*_fuzz.cpp; do harnesses+=("$(basename "$f" .cpp)"); done
fi
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
for h in "${harnesses[@]}"; do
  corpus=build-fuzz/corpus/$h
  mkdir -p "$corpus"
  seeds=()
  [[ -d fuzz/corpus/$h ]] && seeds+=("fuzz/corpus/$h")
  echo "== $h for ${seconds}s"
  # The plugin's debug log (Debugging switched on by the input) is noise here.
  (cd build-fuzz && "./fuzz/$h" -max_total_time="$seconds" -max_len=8192 -timeout=20 \
      -rss_limit_mb=4096 -print_final_stats=1 "corpus/$h" "${seeds[@]/#/../}" 2>&1) |
    grep -v '^KXT Debug: ' | grep -E '^(#[0-9]+[[:space:]]+(INITED|DONE)|stat::|==|SUMMARY|Done|.*ERROR|.*Test unit written|[a-z_]+_fuzz:|.*deadly signal)' || true
  # grep hides the exit status of the fuzzer: a crash leaves a crash-/leak-/timeout- file.
  if compgen -G "build-fuzz/crash-*" >/dev/null || compgen -G "build-fuzz/leak-*" >/dev/null ||
     compgen -G "build-fuzz/timeout-*" >/dev/null || compgen -G "build-fuzz/oom-*" >/dev/null; then
    echo "fuzzing found a problem: see build-fuzz/" >&2
    exit 1
  fi
done
