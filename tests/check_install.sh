#!/usr/bin/env bash
# Install the build into a temporary prefix, then build and run a small C
# program against it twice: found through pkg-config, and through CMake's
# find_package. Usage: check_install.sh BUILD_DIR SOURCE_DIR [C flags]
set -eu
build="$1"
src="$2"
flags="${3:-}"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cmake --install "$build" --prefix "$tmp/prefix" >/dev/null
lib=$(dirname "$(find "$tmp/prefix" -name 'libxbfiles.so.1' | head -n 1)")
mkdir "$tmp/pc" "$tmp/cm"
# pkg-config
export PKG_CONFIG_PATH="$lib/pkgconfig"
cc $flags -o "$tmp/pc/use" "$src/tests/install/use.c" $(pkg-config --cflags --libs xbfiles)
(cd "$tmp/pc" && LD_LIBRARY_PATH="$lib" ./use)
# CMake
cmake -S "$src/tests/install" -B "$tmp/cm/build" -DCMAKE_PREFIX_PATH="$tmp/prefix" \
  -DCMAKE_C_FLAGS="$flags" >/dev/null
cmake --build "$tmp/cm/build" >/dev/null
(cd "$tmp/cm" && LD_LIBRARY_PATH="$lib" ./build/use)
echo "ok: pkg-config and CMake consumers built and ran"
