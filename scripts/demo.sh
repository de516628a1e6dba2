#!/usr/bin/env bash
# Installs what is missing, builds, and shows one frame: what it holds, its
# statistics, its histogram and a preview picture, whose path ends the output.
#   scripts/demo.sh [FILE.fits]      default: a synthetic star field, made first
source "$(dirname "$0")/common.sh" # changes to the project's folder
frame=${1:-}
if [ -n "$frame" ]; then
  case $frame in
    /*) ;;
    *) frame=$OLDPWD/$frame ;;
  esac
  [ -f "$frame" ] || { echo "demo.sh: no such file: $frame" >&2 && exit 1; }
fi

korin_install_build_tools
korin_install libgtest-dev libgmock-dev # the preset configures the tests as well
korin_build release --target korinimage_command
korinimage=build/release/bin/korinimage
out=build/demo
mkdir -p "$out"

if [ -z "$frame" ]; then
  frame=$out/starfield.fits
  echo "== a synthetic frame: $frame"
  "$korinimage" synth "$frame"
fi
name=$(basename "${frame%.*}")
echo "== what it holds"
"$korinimage" info "$frame"
echo "== statistics"
"$korinimage" stats "$frame"
echo "== histogram of the middle 99 percent, also drawn in $out/$name-histogram.png"
"$korinimage" histogram "$frame" --percentile 99 --png "$out/$name-histogram.png"
echo "== preview"
"$korinimage" preview "$frame" -o "$out/$name.png" --percentile 99.5
echo "$PWD/$out/$name.png"
