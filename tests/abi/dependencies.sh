#!/usr/bin/env bash
# Usage: dependencies.sh LIBRARY
#
# The shared library carries its SONAME and asks for nothing but Boost.Thread, Boost.System, Boost.Date_Time, the
# language's own libraries and, in an instrumented build, the instrumentation's.
set -euo pipefail
library=$1
allowed='libboost_(thread|system|date_time)\.so\..*|lib(stdc\+\+|gcc_s|m|c|pthread|asan|ubsan|tsan)\.so\.[0-9]+'
allowed+='|ld-linux-x86-64\.so\.2'

dynamic=$(LC_ALL=C readelf -d "$library")
names_of() { sed -n "s/.*($1).*\[\(.*\)\]/\1/p" <<<"$dynamic"; }

[[ $(names_of SONAME) == libcachet.so.2 ]] || { echo "SONAME is '$(names_of SONAME)'" >&2; exit 1; }
if surplus=$(names_of NEEDED | grep -vxE "$allowed"); then
  printf 'needed, but not allowed: %s\n' $surplus >&2
  exit 1
fi
if grep -qE '\((RPATH|RUNPATH|TEXTREL)\)' <<<"$dynamic"; then
  echo "the library carries a search path or text relocations" >&2
  exit 1
fi
