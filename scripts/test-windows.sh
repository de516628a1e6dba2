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
scripts/cross-deps.sh --files "${targets[@]}"

case " ${targets[*]} " in
  *" windows-"*) scripts/wine-run.sh cmd /c exit >/dev/null 2>&1 & ;; # makes Wine's prefix
esac

echo "== kernel generators"
korin_build release --target KorinImage-halide_generators
failed=()
for target in "${targets[@]}"; do
  echo "== $target"
  korin_build "$target" -- -k 0 || failed+=("build of $target")
  # Skipped tests say why.
  ctest --test-dir "build/$target" --output-on-failure -j "$(nproc)" --no-tests=error ||
    failed+=("$target")
  grep -rhA1 '^.*: Skipped' "build/$target/Testing/Temporary/LastTest.log" |
    grep -vE 'Skipped|^--|^\[' | sort | uniq -c || true
done

# An image from a process of one width to one of the other, both ways.
programs=(build/windows-x86-64/bin/exchange_tests.exe build/windows-x86-32/bin/exchange_tests.exe)
if [ -e "${programs[0]}" ] && [ -e "${programs[1]}" ]; then
  for own in 64 32; do
    other=$((96 - own))
    echo "== exchange between a $own-bit and a $other-bit process"
    KORIN_EXCHANGE_PARTNER="Z:$PWD/build/windows-x86-$other/bin/exchange_partner.exe" \
      scripts/wine-run.sh "build/windows-x86-$own/bin/exchange_tests.exe" \
      --gtest_brief=1 --gtest_filter='*Partner*' || failed+=("exchange $own-$other")
  done
fi

if [ ${#failed[@]} -gt 0 ]; then
  echo "failed: ${failed[*]}"
  exit 1
fi
echo "all passed: ${targets[*]}"
