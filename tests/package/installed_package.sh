#!/usr/bin/env bash
# Usage: installed_package.sh BUILD_DIR EXAMPLES_DIR CXX
#
# Installs the package into a temporary prefix, moves it, and builds and runs the examples against it alone: through
# find_package in a clean folder, and through pkg-config with the shared and with the static library.
# Beside them, the internal headers are found where they were put.
set -euo pipefail
build_dir=$1 examples_dir=$2 cxx=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/moved

cmake --install "$build_dir" --prefix "$work/installed" >/dev/null
mv "$work/installed" "$prefix"
libdir=$(dirname "$(find "$prefix" -name libcachet.so)")
export LD_LIBRARY_PATH=$libdir PKG_CONFIG_PATH=$libdir/pkgconfig
unset CMAKE_GENERATOR

step() { printf -- '--- %s\n' "$*"; }

step find_package
cp -r "$examples_dir" "$work/examples"
cmake -S "$work/examples" -B "$work/examples/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build "$work/examples/build"
cd "$work"
for example in hello_c hello_cpp hello_static; do
  step "$example"
  "examples/build/$example"
done

step pkg-config
"$cxx" -std=c++20 examples/hello.cpp -o shared $(pkg-config --cflags --libs cachet)
./shared
step pkg-config --static
"$cxx" -std=c++20 -static examples/hello.cpp -o static $(pkg-config --static --cflags --libs cachet)
LD_LIBRARY_PATH= ./static

step 'internal headers'
"$cxx" -std=c++20 -Wall -Wextra -Werror -fsyntax-only -xc++ $(pkg-config --cflags cachet) - <<'END'
#include <cachet/caches.h>
END
