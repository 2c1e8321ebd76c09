#!/usr/bin/env bash
# Usage: installed_package.sh BUILD_DIR EXAMPLES_DIR CC CXX
#
# Installs the package into a temporary prefix, moves it, and builds and runs the examples against it alone: through
# find_package in a clean folder, and through pkg-config with the shared and with the static library, in C and in C++.
# Beside them, the internal headers are found where they were put. Uninstalled where it was put, nothing of it is left.
set -euo pipefail
build_dir=$1 examples_dir=$2 cc=$3 cxx=$4

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/moved

# What was really installed from here is for the next `uninstall`.
manifest=$build_dir/install_manifest.txt
if [[ -e $manifest ]]; then cp "$manifest" "$work/manifest"; fi
cmake --install "$build_dir" --prefix "$work/installed" >/dev/null
cp -r "$work/installed" "$prefix"
(cd "$build_dir" && cmake -P "$(sed -n 's/^CMAKE_HOME_DIRECTORY:INTERNAL=//p' CMakeCache.txt)/cmake/uninstall.cmake" >/dev/null)
if [[ -e $work/manifest ]]; then cp "$work/manifest" "$manifest"; fi
if left=$(find "$work/installed" ! -type d -o -path '*/cachet*' | grep .); then
  printf 'uninstalled, but still there: %s\n' $left >&2
  exit 1
fi
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

for language in c c++; do
  source=examples/hello.${language/c++/cpp} compiler=$cxx standard=c++20
  if [[ $language == c ]]; then compiler=$cc standard=c11; fi
  step "pkg-config, $language"
  "$compiler" -std=$standard "$source" -o shared $(pkg-config --cflags --libs cachet)
  ./shared
  step "pkg-config --static, $language"
  "$compiler" -std=$standard -static "$source" -o static $(pkg-config --static --cflags --libs cachet)
  LD_LIBRARY_PATH= ./static
done

step 'internal headers'
"$cxx" -std=c++20 -Wall -Wextra -Werror -fsyntax-only -xc++ $(pkg-config --cflags cachet) - <<'END'
#include <cachet/caches.h>
END
