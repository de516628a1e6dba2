#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: the suite, then the suite
# under sanitizers (blocks move and are poisoned when their last holder lets go).
#   scripts/test.sh [PRESET...]      default: release asan tsan
source "$(dirname "$0")/common.sh"
korin_install_build_tools
korin_install libgtest-dev libgmock-dev ccache imagemagick python3

presets=("$@")
[ ${#presets[@]} -eq 0 ] && presets=(release asan tsan)
for preset in "${presets[@]}"; do
  echo "== $preset"
  # The instrumented builds take the pipelines of the release build.
  [ "$preset" = release ] || korin_build release --target korinimage >/dev/null
  case $preset in
    tsan)
      # Only what locks and what is locked: this build is slow, and it cannot look
      # into the pipelines.
      korin_build tsan --target vm_tests image_tests progress_tests settings_tests
      ctest --test-dir build/tsan --output-on-failure -j "$(test_jobs)" --no-tests=error \
        -R '^(vm|image|progress|settings)_tests\.'
      ;;
    *)
      korin_build "$preset"
      ctest --test-dir "build/$preset" --output-on-failure -j "$(test_jobs)" --no-tests=error
      ;;
  esac
done
