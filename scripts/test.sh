#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: the suite, then the
# suite under sanitizers and with poisoned blocks.
#   scripts/test.sh [PRESET...]      default: release asan tsan poison
source "$(dirname "$0")/common.sh"
korin_install_build_tools
korin_install libgtest-dev libgmock-dev ccache python3

presets=("$@")
[ ${#presets[@]} -eq 0 ] && presets=(release asan tsan poison)
for preset in "${presets[@]}"; do
  echo "== $preset"
  korin_build "$preset" -- -k 0
  ctest --test-dir "build/$preset" --output-on-failure -j "$(nproc)" --no-tests=error \
    $([ "$preset" = tsan ] && echo -L threads)
done
