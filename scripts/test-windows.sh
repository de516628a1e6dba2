#!/usr/bin/env bash
# Builds for Windows, 64- and 32-bit, and runs the whole suite under Wine; then the
# same suite as a 32-bit program of this machine. Installs what is missing.
#   scripts/test-windows.sh [TARGET...]
#       default: windows-x86-64 windows-x86-32 linux-x86-32
source "$(dirname "$0")/common.sh"
korin_install_build_tools
korin_install googletest ccache python3

targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(windows-x86-64 windows-x86-32 linux-x86-32)
failed=()
logs=$PWD/build/cross-logs
mkdir -p "$logs"

# Said with the seconds since the start.
say() { echo "== $*, at $SECONDS s"; }

say "libraries for ${targets[*]}"
scripts/cross-deps.sh --files "${targets[@]}"
case " ${targets[*]} " in
  *" windows-"*) scripts/wine-run.sh cmd /c exit >/dev/null 2>&1 & ;; # makes Wine's prefix
esac
say "kernel generators"
korin_build release --target KorinImage-halide_generators

# Once in some hundred starts Wine loses its server or fails to start a program of a
# test; what failed is run once more then, and only then.
wine_failed() {
  grep -qE 'wine client error|as an internal or external command' "$1" &&
    echo "Wine could not start a program; once more:"
}

# run_tests TARGET: with a count at the end, and why tests were skipped.
run_tests() {
  local log=build/$1/Testing/Temporary/LastTest.log passed=0
  local run=(ctest --test-dir "build/$1" --output-on-failure -j "$(nproc)" --no-tests=error)
  if ! "${run[@]}"; then
    { wine_failed "$log" && "${run[@]}" --rerun-failed; } || passed=1
  fi
  grep -hA1 '^.*: Skipped' "$log" | grep -vE 'Skipped|^--|^\[' | sort | uniq -c || true
  sed -n 's/^\[  PASSED  \] \([0-9]*\) test.*/\1/p' "$log" |
    awk -v target="$1" '{ n += $1 } END { print target ": " n " tests in programs passed" }'
  return $passed
}

# The tests of one target run while the next one is built.
running= tests=
finish_tests() {
  [ -n "$running" ] || return 0
  wait "$tests" || failed+=("tests of $running")
  cat "$logs/$running.log"
  say "$running is tested"
  running=
}
for target in "${targets[@]}"; do
  say "building $target"
  korin_build "$target" -- -k 0 || failed+=("build of $target")
  finish_tests
  running=$target
  run_tests "$target" >"$logs/$target.log" 2>&1 &
  tests=$!
done
finish_tests

# An image from a process of one width to one of the other, both ways.
programs=(build/windows-x86-64/bin/exchange_tests.exe build/windows-x86-32/bin/exchange_tests.exe)
if [ -e "${programs[0]}" ] && [ -e "${programs[1]}" ]; then
  for own in 64 32; do
    other=$((96 - own))
    say "exchange between a $own-bit and a $other-bit process"
    for run in first second; do
      outcome=passed
      KORIN_EXCHANGE_PARTNER="Z:$PWD/build/windows-x86-$other/bin/exchange_partner.exe" \
        scripts/wine-run.sh "build/windows-x86-$own/bin/exchange_tests.exe" \
        --gtest_brief=1 --gtest_filter='*Partner*' >"$logs/exchange.log" 2>&1 || outcome=failed
      cat "$logs/exchange.log"
      if [ $outcome = passed ] || [ $run = second ] || ! wine_failed "$logs/exchange.log"; then break; fi
    done
    [ $outcome = passed ] || failed+=("exchange $own-$other")
  done
fi

say "done"
if [ ${#failed[@]} -gt 0 ]; then
  echo "failed: ${failed[*]}"
  exit 1
fi
echo "all passed: ${targets[*]}"
