#!/usr/bin/env bash
# Usage: program.sh README INCLUDE_DIR BUILD_DIR CC CXX [FLAG...]
#
# Takes the program out of the README (the fenced ```c or ```cpp block below the line <!-- program -->), builds it
# as a reader would, against the build tree, and runs it in an empty folder.
set -euo pipefail
readme=$1 include_dir=$2 build_dir=$3 cc=$4 cxx=$5
shift 5

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

language=$(sed -n '/^<!-- program -->$/,/^```[a-z]/s/^```//p' "$readme")
case $language in
  c) compiler=("$cc" -std=c11) ;;
  cpp) compiler=("$cxx" -std=c++20) ;;
  *) echo "no program is marked in $readme" >&2; exit 1 ;;
esac
sed -n '/^<!-- program -->$/,/^```$/p' "$readme" | sed '1,/^```[a-z]/d; /^```$/d' >"$work/program.$language"
[[ -s $work/program.$language ]] || { echo "the program in $readme is empty" >&2; exit 1; }

"${compiler[@]}" -Wall -Wextra -Werror "$@" "$work/program.$language" -I"$include_dir" -L"$build_dir" -lcachet \
  -o "$work/program"
cd "$work"
LD_LIBRARY_PATH=$build_dir ./program
