#!/usr/bin/env bash
# Installs what the benchmark needs, builds it and prints its table.
#   bench/run.sh [Google Benchmark options]
source "$(dirname "$0")/../scripts/common.sh"
korin_install_build_tools
korin_install libbenchmark-dev libopencv-dev python3
korin_build bench --target korin_bench
result=$(mktemp)
trap 'rm -f "$result"' EXIT
build/bench/bench/korin_bench --benchmark_out="$result" --benchmark_out_format=json \
  --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true \
  --benchmark_min_time=0.1 "$@" >/dev/null
python3 bench/ratios.py "$result"
