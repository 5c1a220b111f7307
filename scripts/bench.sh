#!/usr/bin/env bash
# Builds the benchmark suite (build-bench/, the plugin's usual optimisation level), runs every
# program with JSON output and writes bench/RESULTS.md from the results.
#   scripts/bench.sh                                  # the full table (about 10 minutes)
#   KXT_BENCH_TIME=0.1 scripts/bench.sh               # a quick look: shorter minimum times
#   scripts/bench.sh --benchmark_filter='URL'         # extra arguments go to every program
# Run it on a quiet machine: it waits (up to KXT_BENCH_WAIT minutes, default 20) for the
# one-minute load average to fall below KXT_BENCH_LOAD (default 1.5), and the load at the start
# and end goes into the results.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh libbenchmark-dev libicu-dev libcurl4-openssl-dev libglib2.0-dev libxml2-dev \
  libgmime-3.0-dev libsodium-dev libutf8proc-dev libpcre2-dev
cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKXT_BENCH=ON \
  -DKXT_TESTS=OFF >/dev/null
cmake --build build-bench -j2
limit=${KXT_BENCH_LOAD:-1.5}
deadline=$(($(date +%s) + 60 * ${KXT_BENCH_WAIT:-20}))
while awk -v l="$limit" '{ exit !($1 >= l) }' /proc/loadavg && (($(date +%s) < deadline)); do
  echo "Load $(cut -d' ' -f1 /proc/loadavg) is not below $limit yet; waiting"
  sleep 30
done
results=build-bench/results
rm -rf "$results"
mkdir -p "$results"
load_start=$(cut -d' ' -f1-3 /proc/loadavg)
start=$(date +%s)
for program in text encoders unicode distance rtf calls; do
  echo "== ${program}_bench"
  build-bench/bench/${program}_bench --benchmark_out="$results/$program.json" \
    --benchmark_out_format=json --benchmark_format=console "$@" | grep -v '^\*\*\*WARNING'
done
load_end=$(cut -d' ' -f1-3 /proc/loadavg)
python3 scripts/bench_report.py --load-start "$load_start" --load-end "$load_end" \
  --seconds $(($(date +%s) - start)) "$results"/*.json >bench/RESULTS.md
echo "Wrote bench/RESULTS.md"
