#!/usr/bin/env bash
# Usage: dump.sh LIBRARY >FILE
#
# Describes the calls of cachet.h and cachetx.h as the library has them: names, parameters, types. Needs its debug
# information. Types that these headers only name are left out, and so is whatever depends on the compiler or a path.
set -euo pipefail
here=$(dirname "$0")
include=$here/../../include

abidw --exported-interfaces-only --drop-private-types --type-id-style hash --suppressions "$here/libcachet.suppr" \
  --header-file "$include/cachet.h" --header-file "$include/cachetx.h" \
  --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --no-parameter-names --no-write-default-sizes "$1"
