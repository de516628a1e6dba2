#!/usr/bin/env bash
# Installs what the benchmarks need, builds them and prints one table.
#   bench/run.sh [--quick] [part of an operation's name]
source "$(dirname "$0")/../scripts/common.sh"
korin_install_build_tools
korin_install libbenchmark-dev libopencv-dev libvips-dev imagemagick python3 python3-numpy
korin_build bench --target korin_bench >&2
grep -m 1 'model name' /proc/cpuinfo | cut -d : -f 2-
echo "$(nproc) processors, $(uname -sr), $(g++ --version | head -n 1)"
# The interpreter that the package of numpy is for.
/usr/bin/python3 bench/ratios.py build/bench/bench "$@"
