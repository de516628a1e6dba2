# Shared by the scripts: installing what is missing and building a preset.
# shellcheck shell=bash
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# korin_install PACKAGE...: installs the Debian packages that are missing.
korin_install() {
  local missing=()
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
      missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then as_root=(sudo); fi
  echo "installing: ${missing[*]}"
  "${as_root[@]}" apt-get update -q >/dev/null
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -q --no-install-recommends "${missing[@]}" >/dev/null
}

korin_install_build_tools() {
  korin_install g++ cmake ninja-build pkg-config libhalide14-0-dev libcfitsio-dev libpng-dev \
    libcli11-dev libfmt-dev libsimpleini-dev
}

# korin_build PRESET [cmake --build arguments]: configures and builds a preset.
korin_build() {
  local preset=$1
  shift
  local launcher=()
  if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
  cmake --preset "$preset" "${launcher[@]}" >/dev/null
  cmake --build --preset "$preset" "$@"
}

# Tests at a time: some wait for clocks and processes, so more than processors.
test_jobs() { echo $((2 * $(nproc))); }
