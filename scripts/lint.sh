#!/usr/bin/env bash
# What no compiler checks: the rules of the house (lint.py) and the formatting.
set -euo pipefail
cd "$(dirname "$0")/.."
python3 scripts/lint.py
formatter=$(command -v clang-format || command -v clang-format-14 || true)
if [ -n "$formatter" ]; then
  git ls-files -z '*.cpp' '*.h' | xargs -0 "$formatter" --dry-run --Werror
else
  echo "clang-format is not installed: formatting not checked"
fi
