#!/usr/bin/env bash
# Usage: exports.sh LIBRARY EXPECTED
#
# Compares the names that the shared library defines with the list kept in the tree. A name that went away breaks
# programs; a name that came is a promise. When the change is meant, scripts/update-exports writes the list anew.
set -euo pipefail
export LC_ALL=C
library=$1 expected=$2

if ! diff <(nm -D --defined-only --format=just-symbols "$library" | sort) "$expected"; then
  echo "The exported names differ (< library, > ${expected##*/})." >&2
  exit 1
fi
echo "$(wc -l <"$expected") exported names, as expected"
