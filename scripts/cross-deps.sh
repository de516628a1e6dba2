#!/usr/bin/env bash
# Puts below build/deps what a build for another target needs and Debian has no
# package of: the test framework, the compiler's run-time DLLs, header libraries,
# and the file libraries from their source packages. Nothing outside build/ changes,
# except that missing Debian packages are installed.
#   scripts/cross-deps.sh [--files] TARGET...
#       TARGET: windows-x86-64 windows-x86-32 linux-x86-32
#       --files: also zlib, libpng and CFITSIO, for the file library and the command
source "$(dirname "$0")/common.sh"

deps=${KORIN_CROSS_DEPS:-$PWD/build/deps}
mkdir -p "$deps"

files=no
targets=()
for argument in "$@"; do
  case $argument in
    --files) files=yes ;;
    windows-x86-64 | windows-x86-32 | linux-x86-32) targets+=("$argument") ;;
    *)
      echo "unknown argument: $argument" >&2
      exit 2
      ;;
  esac
done

korin_install cmake ninja-build libhalide14-0-dev googletest libcli11-dev libfmt-dev \
  libsimpleini-dev
for target in "${targets[@]}"; do
  case $target in
    windows-x86-64) korin_install g++-mingw-w64-x86-64-posix wine wine64 ;;
    windows-x86-32) korin_install g++-mingw-w64-i686-posix wine wine64 libz-mingw-w64 ;;
    linux-x86-32) korin_install g++-multilib ;;
  esac
done

# once STAMP COMMAND...: runs a step that no earlier run finished.
once() {
  local stamp=$deps/.done/$1
  shift
  [ -e "$stamp" ] && return 0
  echo "cross-deps: $(basename "$stamp")"
  "$@"
  mkdir -p "$(dirname "$stamp")"
  touch "$stamp"
}

# install_cmake TARGET NAME SOURCE [OPTION...]: builds a CMake project for a target.
install_cmake() {
  local target=$1 name=$2 source=$3
  shift 3
  local log=$deps/build/$target/$name.log
  rm -rf "$deps/build/$target/$name"
  mkdir -p "$deps/build/$target"
  if ! { cmake -S "$source" -B "$deps/build/$target/$name" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchains/$target.cmake" \
    -DKORIN_CROSS_DEPS="$deps" -DCMAKE_INSTALL_PREFIX="$deps/$target" \
    -DCMAKE_INSTALL_LIBDIR=lib -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=OFF \
    -DCMAKE_POSITION_INDEPENDENT_CODE=ON "$@" &&
    cmake --build "$deps/build/$target/$name" --target install; } >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    echo "building $name for $target failed, see $log" >&2
    exit 1
  fi
}

# Header libraries of the host, beside nothing else of the host's headers.
copy_headers() {
  local include=$deps/$1/include
  mkdir -p "$include"
  cp -r /usr/include/CLI /usr/include/fmt /usr/include/SimpleIni.h "$include/"
}

# Packages of the copied headers: of fmt only these are used.
write_header_packages() {
  local packages=$deps/$1/lib/cmake
  mkdir -p "$packages/CLI11" "$packages/fmt"
  header_package CLI11::CLI11 >"$packages/CLI11/CLI11Config.cmake"
  header_package fmt::fmt >"$packages/fmt/fmtConfig.cmake"
  echo 'set_property(TARGET fmt::fmt PROPERTY INTERFACE_COMPILE_DEFINITIONS FMT_HEADER_ONLY=1)' \
    >>"$packages/fmt/fmtConfig.cmake"
  local name
  for name in CLI11 fmt; do
    printf 'set(PACKAGE_VERSION_COMPATIBLE TRUE)\n' >"$packages/$name/${name}ConfigVersion.cmake"
  done
}

header_package() {
  cat <<END
get_filename_component(prefix "\${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
add_library($1 INTERFACE IMPORTED)
set_target_properties($1 PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "\${prefix}/include")
END
}

# The DLLs that every program of the compiler needs; the toolchain puts them beside it.
copy_runtime() {
  local target=$1 cpu=$2 unwinder=$3 bin=$deps/$1/bin
  mkdir -p "$bin"
  local name
  for name in "$unwinder" libstdc++-6.dll libgomp-1.dll libwinpthread-1.dll; do
    cp "$("$cpu-w64-mingw32-g++-posix" -print-file-name="$name")" "$bin/"
  done
}

# unpack_source PACKAGE: the newest source package, unpacked as $deps/source/PACKAGE.
unpack_source() {
  local apt=$deps/apt-source file
  mkdir -p "$apt/lists/partial" "$apt/cache/archives/partial" "$apt/sources" "$deps/source"
  for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    if [ -e "$file" ]; then sed -n 's/^deb /deb-src /p' "$file"; fi
  done >"$apt/sources/korin.list"
  for file in /etc/apt/sources.list.d/*.sources; do
    [ -e "$file" ] || continue
    sed 's/^Types:.*/Types: deb-src/' "$file" >"$apt/sources/$(basename "$file")"
  done
  local options=(-oDir::Etc::SourceList=/dev/null -oDir::Etc::SourceParts="$apt/sources"
    -oDir::State::Lists="$apt/lists" -oDir::Cache="$apt/cache")
  if [ -z "$(find "$apt/lists" -name '*Sources*' -print -quit)" ]; then
    # An index that cannot be had is of no importance as long as the package is found.
    apt-get "${options[@]}" update -q >"$apt/update.log" 2>&1 || true
  fi
  # The newest version; where a mirror lacks that, the release's own; and where it
  # lacks the packager's part, the plain source.
  local codename how
  codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
  rm -rf "${apt:?}/$1"_* "$deps/source/$1"
  for how in "$1" "$1/$codename" "--tar-only $1"; do
    # shellcheck disable=SC2086
    if (cd "$apt" && apt-get "${options[@]}" source -q --download-only $how) >>"$apt/$1.log" 2>&1; then
      case $how in
        --tar-only*)
          mkdir -p "$deps/source/$1"
          tar -xf "$apt/$1"_*.orig.tar.* -C "$deps/source/$1" --strip-components=1
          ;;
        *) (cd "$apt" && dpkg-source --no-check -x "$1"_*.dsc "$deps/source/$1" >>"$apt/$1.log" 2>&1) ;;
      esac
      return
    fi
  done
  tail -n 5 "$apt/$1.log" >&2
  echo "the source package $1 cannot be had" >&2
  exit 1
}

# 32-bit system DLLs, so that the 64-bit Wine runs 32-bit programs as well.
unpack_wine32() {
  local apt=$deps/apt-i386
  mkdir -p "$apt/lists/partial" "$apt/cache/archives/partial"
  local options=(-oAPT::Architecture=i386 -oAPT::Architectures=i386
    -oDir::State::Lists="$apt/lists" -oDir::Cache="$apt/cache")
  # A security index that fails to load does not matter.
  apt-get "${options[@]}" update -q >"$apt/update.log" 2>&1 || true
  (cd "$apt" && apt-get "${options[@]}" download -q libwine >"$apt/download.log" 2>&1)
  rm -rf "$deps/wine32"
  dpkg -x "$apt"/libwine_*_i386.deb "$deps/wine32"
  rm "$apt"/libwine_*_i386.deb
}

# Compiled by hand: Debian's source lacks the resources that its own rules want.
build_zlib() {
  local target=$1 compiler=(gcc -m32 -DHAVE_UNISTD_H -fPIC) archiver=ar
  case $target in
    windows-x86-64) compiler=(x86_64-w64-mingw32-gcc-posix) archiver=x86_64-w64-mingw32-ar ;;
    windows-x86-32) compiler=(i686-w64-mingw32-gcc-posix) archiver=i686-w64-mingw32-ar ;;
  esac
  local build=$deps/build/$target/zlib source=$deps/source/zlib
  rm -rf "$build"
  mkdir -p "$build" "$deps/$target/lib" "$deps/$target/include"
  (cd "$build" && "${compiler[@]}" -O2 -c "$source"/*.c && "$archiver" rcs libz.a ./*.o)
  cp "$build/libz.a" "$deps/$target/lib/"
  cp "$source/zlib.h" "$source/zconf.h" "$deps/$target/include/"
}

build_file_libraries() {
  local target=$1 libm=""
  # Looked for among the target's own libraries it would not be found.
  if [ "$target" = linux-x86-32 ]; then libm=m; fi
  once "$target-zlib" build_zlib "$target"
  once "$target-libpng" install_cmake "$target" libpng "$deps/source/libpng1.6" \
    -DPNG_SHARED=OFF -DPNG_TESTS=OFF
  once "$target-cfitsio" install_cmake "$target" cfitsio "$deps/source/cfitsio" \
    -DUSE_CURL=OFF -DTESTS=OFF -DUTILS=OFF -DM_LIB="$libm" -DCMAKE_C_FLAGS_RELEASE=-O1
}

prepare() {
  local target=$1
  once "$target-headers" copy_headers "$target"
  once "$target-header-packages" write_header_packages "$target"
  case $target in
    windows-x86-64) once "$target-runtime" copy_runtime "$target" x86_64 libgcc_s_seh-1.dll ;;
    windows-x86-32)
      once "$target-runtime" copy_runtime "$target" i686 libgcc_s_dw2-1.dll
      ;;
  esac
  once "$target-googletest" install_cmake "$target" googletest /usr/src/googletest \
    -DCMAKE_CXX_FLAGS_RELEASE=-O1
  [ "$files" = no ] || build_file_libraries "$target"
}

case " ${targets[*]} " in *" windows-"*) once wine32 unpack_wine32 ;; esac
if [ "$files" = yes ]; then
  for package in zlib libpng1.6 cfitsio; do once "source-$package" unpack_source "$package"; done
fi
# What a build does one step at a time leaves room for another target's.
running=()
for target in "${targets[@]}"; do
  prepare "$target" &
  running+=($!)
done
for one in "${running[@]}"; do wait "$one"; done
