#!/usr/bin/env bash
# Usage: debian_packages.sh BUILD_DIR CXX
#
# Packs what is built, twice, for the same bytes. Looks at what each package says and holds, unpacks all of them side by
# side, and builds and runs the examples in C and C++ that libcachet-dev brings, against nothing but the unpacked files.
set -euo pipefail
build_dir=$1 cxx=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export SOURCE_DATE_EPOCH=1700000000 LC_ALL=C

fail() { printf '%s\n' "$*" >&2; exit 1; }

for copy in first second; do
  cpack --config "$build_dir/CPackConfig.cmake" -G DEB -B "$work/$copy" >/dev/null
  rm -r "$work/$copy/_CPack_Packages"
done
diff -r "$work/first" "$work/second" || fail "packing again makes other packages"
cd "$work/first"
root=$work/root

field() { dpkg-deb -f "$(echo "$1"_*.deb)" "$2"; }
version=$(field libcachet2 Version)

check_package() {
  local package=$1 deb contents
  deb=$(echo "$package"_*.deb)
  contents=$(dpkg-deb -c "$deb")
  [[ $(field "$package" Package) == "$package" ]]
  [[ $(field "$package" Architecture) == amd64 ]]
  [[ -n $(field "$package" Section) && $(field "$package" Description) == *$'\n'* ]]
  grep -q "/doc/$package/copyright$" <<<"$contents" || fail "$package: no copyright"
  grep -q "/doc/$package/changelog.gz$" <<<"$contents" || fail "$package: no changelog"
  if grep -vE '^[^ ]+ root/root ' <<<"$contents"; then fail "$package: not root's"; fi
  if grep -E '^.{5}w|^.{8}w' <<<"$(grep -v ^l <<<"$contents")"; then fail "$package: others may write"; fi
  if grep -E '/man/.*\.[0-9]$' <<<"$contents"; then fail "$package: a manual is not compressed"; fi
  dpkg-deb -x "$deb" "$root"
}
for package in libcachet2 libcachet-dev cachet-tools; do check_package "$package"; done

[[ $(field libcachet2 Depends) =~ libboost-thread.*libc6.*libstdc\+\+6 ]] || fail "libcachet2: $(field libcachet2 Depends)"
[[ $(field libcachet-dev Depends) == "libcachet2 (= $version)"* ]] || fail "libcachet-dev: $(field libcachet-dev Depends)"
[[ $(field cachet-tools Depends) == *"libcachet2 (= $version)"* ]] || fail "cachet-tools: $(field cachet-tools Depends)"
[[ $(dpkg-deb -I libcachet2_*.deb triggers) == 'activate-noawait ldconfig' ]] || fail "libcachet2: no ldconfig"
[[ $(dpkg-deb -I libcachet2_*.deb shlibs) == 'libcachet 2 libcachet2'* ]] || fail "libcachet2: no shlibs"

# Position-independent, bound at once and read-only from then on, stripped.
library=$(find "$root" -name 'libcachet.so.*.*')
for binary in "$library" "$root"/usr/bin/*; do
  elf=$(readelf -hldSW "$binary")
  [[ $elf =~ Type:\ *DYN ]] || fail "$binary: not position-independent"
  [[ $elf == *GNU_RELRO* && $elf =~ Flags:\ *NOW ]] || fail "$binary: addresses stay writable"
  [[ $elf != *.debug_info* ]] || fail "$binary: not stripped"
done
symbols=$(readelf --dyn-syms -W "$library")
[[ $symbols == *__stack_chk_fail* ]] || fail "no stack protector"
[[ $symbols == *__snprintf_chk* ]] || fail "nothing is fortified"

if command -v msgfmt >/dev/null; then
  [[ -s $root/usr/share/locale/zh_CN/LC_MESSAGES/zt.mo ]] || fail "cachet-tools: no Chinese messages"
fi

# The manual and the completion know every option of the manager, and no other.
export LD_LIBRARY_PATH
LD_LIBRARY_PATH=$(dirname "$library")
options() { grep -oE -- '--[a-z]+(-[a-z]+)*' | sort -u; }
known=$("$root/usr/bin/ztmanager" --help | options)
diff <(echo "$known") <(options <"$root/usr/share/bash-completion/completions/ztmanager") || fail "the completion differs"
diff <(echo "$known") <(zcat "$root/usr/share/man/man8/ztmanager.8.gz" | sed -n '/^\.It Fl/s/.* -\([a-z-]*\).*/--\1/p' | sort -u) ||
  fail "the manual differs"
if command -v systemd-analyze >/dev/null; then
  sed "s|^ExecStart=|&$root/usr/bin/|" "$root/usr/lib/systemd/system/ztmanager@.service" >"$work/ztmanager@stock.service"
  complaints=$(systemd-analyze verify --man=no "$work/ztmanager@stock.service" 2>&1) || fail "$complaints"
  [[ -z $complaints ]] || fail "$complaints"
fi

unset CMAKE_GENERATOR
cmake -S "$root/usr/share/doc/libcachet-dev/examples" -B "$work/examples" -DCMAKE_PREFIX_PATH="$root/usr" \
  -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build "$work/examples"
for example in hello_c hello_cpp hello_static; do "$work/examples/$example"; done
