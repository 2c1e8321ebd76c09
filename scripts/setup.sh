# Sourced by the other scripts: the way to the tree's root, and the Debian packages they need.
#
# Installs with apt-get only what is missing, and says so; when it may not, it names what is to be installed by hand.

cd "$(dirname "${BASH_SOURCE[0]}")/.."

build_packages=(g++ cmake ninja-build libboost-thread-dev libboost-system-dev libboost-date-time-dev)
test_packages=(libgtest-dev pkg-config binutils locales)
tool_packages=(libcli11-dev libspdlog-dev libsystemd-dev pkg-config libfmt-dev nlohmann-json3-dev libssl-dev
               libtomlplusplus-dev libutf8proc-dev libedit-dev gettext)
package_packages=(dpkg-dev gzip binutils)
fuzz_packages=(clang libclang-rt-dev)
check_packages=(clang clang-format clang-tidy python3 git abigail-tools doxygen man-db)

say() { printf '==> %s\n' "$*"; }

die() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

# Prints the opening comment of the calling script, and ends it, when --help is the first argument.
help_if_asked() {
  [[ ${1:-} == --help || ${1:-} == -h ]] || return 0
  sed -n '2,/^[^#]/s/^# \{0,1\}//p' "scripts/${0##*/}"
  exit 0
}

missing_packages() {
  local package
  for package in "$@"; do
    [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] || printf '%s ' "$package"
  done
}

# Installs those of the named packages that are missing.
need_packages() {
  command -v dpkg-query apt-get >/dev/null ||
    die "this is not a Debian system; install what these packages hold by hand: $*"
  local missing log
  missing=$(missing_packages "$@")
  [[ -n $missing ]] || return 0
  ((EUID == 0)) || die "packages are missing, and only root may install them: apt-get install $missing"
  say "Installing $missing"
  log=$(mktemp)
  # shellcheck disable=SC2086  # a list of words
  if ! { apt-get update && DEBIAN_FRONTEND=noninteractive \
         apt-get install -y --no-install-recommends $missing; } >"$log" 2>&1 </dev/null; then
    tail -n 15 "$log" >&2
    rm -f "$log"
    die "apt-get could not install the packages (see above); is the network there?"
  fi
  rm -f "$log"
}
