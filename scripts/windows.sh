#!/usr/bin/env bash
# The Windows build: installs the mingw-w64 cross compiler, Wine and the sources it needs from
# Debian, builds TurboJPEG and Google Benchmark for Windows once (kept in build-win/deps), builds
# framefeed.dll with the core, tests and tools, and runs the tests under Wine.
#   bash scripts/windows.sh          build and test
#   bash scripts/windows.sh build    build only
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
out=$root/build-win
deps=$out/deps
sudo_cmd=""
[ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"

# Debian packages, and the source entries that apt-get source needs.
packages=(g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine wine64 nasm dpkg-dev cmake ninja-build googletest)
missing=()
for package in "${packages[@]}"; do dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package"); done
sources=/etc/apt/sources.list.d/framefeed-deb-src.sources
if [ ! -f "$sources" ]; then
  suite=$(. /etc/os-release && echo "${VERSION_CODENAME:-bookworm}")
  printf 'Types: deb-src\nURIs: http://deb.debian.org/debian\nSuites: %s %s-updates\nComponents: main\nSigned-By: /usr/share/keyrings/debian-archive-keyring.gpg\n' \
    "$suite" "$suite" | $sudo_cmd tee "$sources" >/dev/null
  need_update=1
fi
if [ ${#missing[@]} -gt 0 ] || [ -n "${need_update:-}" ]; then
  $sudo_cmd apt-get update -qq
  [ ${#missing[@]} -gt 0 ] && DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}" >/dev/null
fi

toolchain=$root/cmake/mingw-w64-x86_64.cmake

# Builds a Debian source package for Windows into $deps/<name> unless it is there already.
build_dependency() {
  local package=$1 marker=$2
  shift 2
  [ -f "$deps/$package/$marker" ] && return 0
  mkdir -p "$deps/src"
  (cd "$deps/src" && rm -rf "$package"-*/ && apt-get source -qq "$package" >/dev/null 2>&1)
  local source
  source=$(find "$deps/src" -maxdepth 1 -type d -name "$package-*" | head -n 1)
  cmake -S "$source" -B "$deps/build-$package" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$deps/$package" "$@" >/dev/null
  ninja -C "$deps/build-$package" install >/dev/null
}
build_dependency libjpeg-turbo lib/libturbojpeg.a \
  -DENABLE_SHARED=OFF -DENABLE_STATIC=ON -DWITH_TURBOJPEG=ON -DCMAKE_ASM_NASM_COMPILER=nasm
build_dependency benchmark lib/libbenchmark.a \
  -DBENCHMARK_ENABLE_TESTING=OFF -DBENCHMARK_ENABLE_GTEST_TESTS=OFF -DBENCHMARK_ENABLE_WERROR=OFF -DGIT_VERSION=0.0.0

cmake -S . -B "$out" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=Release \
  -DFRAMEFEED_TURBOJPEG_ROOT="$deps/libjpeg-turbo" -Dbenchmark_DIR="$deps/benchmark/lib/cmake/benchmark" >/dev/null
ninja -C "$out"

[ "${1:-test}" = build ] && exit 0
export WINEPREFIX=$out/wineprefix WINEDEBUG=-all
ctest --test-dir "$out" --output-on-failure --timeout 900
