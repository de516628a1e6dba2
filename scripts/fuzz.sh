#!/usr/bin/env bash
# Builds the fuzz targets with clang and runs each from its corpus, two at a time.
#   scripts/fuzz.sh [SECONDS [TARGET...]]      default: 600 seconds, every target
# A finding fails the run; its input is left in build/fuzz/findings. What a run
# learns is kept in build/fuzz/grown and used by the next; a run of at most a minute
# starts from the committed corpus and the same seed each time, so that what it finds
# comes from the code and not from chance.
source "$(dirname "$0")/common.sh"
korin_install_build_tools
korin_install clang-14 libclang-rt-14-dev ccache

seconds=${1:-600}
targets=("${@:2}")
if [ ${#targets[@]} -eq 0 ]; then
  for corpus in fuzz/corpus/*/; do targets+=("$(basename "$corpus")"); done
fi
korin_build release --target korinimage >/dev/null
korin_build fuzz --target "${targets[@]}"

fuzz_one() {
  local seconds=$1 target=$2 log=build/fuzz/$2.log grown=build/fuzz/grown/$2 seed=0
  if [ "$seconds" -le 60 ]; then
    grown=build/fuzz/short/$target seed=1
    rm -rf "$grown"
  fi
  mkdir -p "$grown" build/fuzz/findings
  # A file of the largest kind is a few FITS blocks with a table.
  if "build/fuzz/fuzz/$target" -seed=$seed -max_total_time="$seconds" -max_len=20000 -timeout=100 \
    -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="build/fuzz/findings/$target-" \
    "$grown" "fuzz/corpus/$target" >"$log" 2>&1; then
    echo "$target: $(sed -n 's/^stat::number_of_executed_units: *//p' "$log") inputs, no finding"
  else
    grep -av '^#' "$log" | tail -n 60
    echo "$target: FAILED, see $log and build/fuzz/findings"
    return 1
  fi
}
export -f fuzz_one
printf '%s\n' "${targets[@]}" | xargs -P 2 -I{} bash -c "fuzz_one $seconds {}"
