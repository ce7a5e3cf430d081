# shellcheck shell=bash
# What the scripts share: where the repository is, how they speak, and how a missing tool is
# installed. Sourced, never run; works with bash 3.2 (macOS) and later.

set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)"
cd "$ROOT"

# shellcheck disable=SC2034 # not every script uses every colour
if [ -t 1 ] && [ -z "${NO_COLOR:-}" ]; then
  BOLD=$'\033[1m' DIM=$'\033[2m' GREEN=$'\033[32m' RED=$'\033[31m' YELLOW=$'\033[33m' PLAIN=$'\033[0m'
else
  BOLD='' DIM='' GREEN='' RED='' YELLOW='' PLAIN=''
fi

say() { printf '%s\n' "$*"; }
note() { printf '%s%s%s\n' "$DIM" "$*" "$PLAIN"; }
# Says that a check went well; scripts/test counts these lines.
checked() { printf '%sok%s  %s\n' "$GREEN" "$PLAIN" "$*"; }
die() {
  printf '%s%s: %s%s\n' "$RED" "$(basename "$0")" "$*" "$PLAIN" >&2
  exit 1
}

# Ends a script that cannot have what it needs from a package registry (EX_UNAVAILABLE of sysexits.h).
UNAVAILABLE=69
unavailable() {
  printf '%s%s: %s%s\n' "$RED" "$(basename "$0")" "$*" "$PLAIN" >&2
  exit "$UNAVAILABLE"
}

# usage TEXT ARGUMENTS...: prints TEXT and ends when -h or --help is among the arguments.
usage() {
  local text="$1" argument
  shift
  for argument in "$@"; do
    case "$argument" in
      -h | --help)
        say "$text"
        exit 0
        ;;
    esac
  done
}

have() { command -v "$1" >/dev/null 2>&1; }

cores() { getconf _NPROCESSORS_ONLN 2>/dev/null || echo 2; }

# version_at_least WANTED GIVEN, for versions of up to three numbers.
version_at_least() {
  local wanted given i
  IFS=. read -r -a wanted <<<"$1"
  IFS=. read -r -a given <<<"${2%%[!0-9.]*}"
  for i in 0 1 2; do
    [ "${given[$i]:-0}" -gt "${wanted[$i]:-0}" ] && return 0
    [ "${given[$i]:-0}" -lt "${wanted[$i]:-0}" ] && return 1
  done
  return 0
}

have_cmake() {
  have cmake && version_at_least 3.25 "$(cmake --version | sed -n '1s/^cmake version //p')"
}
have_compiler() { have "${CXX:-c++}" || have g++ || have clang++; }
have_library() { have pkg-config && pkg-config --exists "$1"; }
have_curl_headers() { have_library libcurl || [ "$(uname)" = Darwin ]; } # macOS brings them
have_node() { have npm && have node && version_at_least 20 "$(node --version | sed 's/^v//')"; }

# Formatting and tidy findings differ between versions of clang, so one version decides.
CLANG_VERSION=14

# clang_tool NAME: the command that is NAME of that version; fails when there is none.
clang_tool() {
  local candidate
  for candidate in "$1-$CLANG_VERSION" "$1"; do
    if have "$candidate" && "$candidate" --version | grep "version $CLANG_VERSION\." >/dev/null; then
      say "$candidate"
      return 0
    fi
  done
  return 1
}
have_fuzzer() {
  local compiler
  compiler="$(clang_tool clang++)" &&
    printf 'extern "C" int LLVMFuzzerTestOneInput(const char*, unsigned long) { return 0; }' |
    "$compiler" -fsanitize=fuzzer -x c++ - -o /dev/null 2>/dev/null
}

# --- installing what is missing -----------------------------------------------------------------

MISSING_APT=()
MISSING_BREW=()

# want CHECK APT BREW: remembers the packages ("-" for none) when the command CHECK fails.
want() {
  if eval "$1" >/dev/null 2>&1; then return 0; fi
  if [ "$2" != - ]; then MISSING_APT+=("$2"); fi
  if [ "$3" != - ]; then MISSING_BREW+=("$3"); fi
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif have sudo; then
    sudo "$@"
  else
    die "needs root to run: $*. Run it as root, or install sudo"
  fi
}

apt_install() {
  export DEBIAN_FRONTEND=noninteractive
  as_root apt-get update -qq >/dev/null && as_root apt-get install -y -qq "$@" >/dev/null
}

# Installs what `want` found missing; fails when that was not possible.
install_missing() {
  if have apt-get; then
    [ "${#MISSING_APT[@]}" -eq 0 ] && return 0
    note "installing with apt: ${MISSING_APT[*]}"
    apt_install "${MISSING_APT[@]}" || return 1
  elif have brew; then
    [ "${#MISSING_BREW[@]}" -eq 0 ] && return 0
    note "installing with brew: ${MISSING_BREW[*]}"
    brew install --quiet "${MISSING_BREW[@]}" >/dev/null || return 1
  else
    [ "${#MISSING_APT[@]}" -eq 0 ] && return 0
    die "missing, and there is neither apt nor brew to install it: ${MISSING_APT[*]} (Debian's names)"
  fi
  MISSING_APT=()
  MISSING_BREW=()
}

# What building the program needs. ccache is not needed, but makes the next build short.
setup_build() {
  want have_cmake cmake cmake
  want 'have ninja' ninja-build ninja
  want 'have pkg-config' pkg-config pkgconf
  want have_compiler g++ -
  want 'have_library libpcre2-8' libpcre2-dev pcre2
  want 'have_library libutf8proc' libutf8proc-dev utf8proc
  want have_curl_headers libcurl4-openssl-dev -
  want 'have ccache' ccache ccache
  install_missing || die "could not install what building needs (see above)"
  have_compiler || die "no C++ compiler. Next step: xcode-select --install"
  have_cmake || die "cmake is older than 3.25. Next step: install a newer one from cmake.org"
}

# What the tests need besides.
setup_tests() {
  # Homebrew keeps its OpenSSL where neither pkg-config nor CMake looks.
  if ! have apt-get && have brew; then
    OPENSSL_ROOT_DIR="$(brew --prefix openssl || true)"
    export OPENSSL_ROOT_DIR PKG_CONFIG_PATH="$OPENSSL_ROOT_DIR/lib/pkgconfig:${PKG_CONFIG_PATH:-}"
  fi
  want 'have_library gmock' libgmock-dev googletest
  want 'have_library gtest' libgtest-dev googletest
  want 'have_library openssl' libssl-dev openssl
  want 'have_library zlib' zlib1g-dev zlib
  install_missing || die "could not install what the tests need (see above)"
}

# What the further checks need. Each is left out, and said to be, where it is not to be had.
setup_checks() {
  local packages=() package
  clang_tool clang-format >/dev/null || packages+=("clang-format-$CLANG_VERSION")
  clang_tool clang-tidy >/dev/null || packages+=("clang-tidy-$CLANG_VERSION")
  clang_tool clang++ >/dev/null || packages+=("clang-$CLANG_VERSION")
  have_fuzzer || packages+=("libclang-rt-$CLANG_VERSION-dev")
  have shellcheck || packages+=(shellcheck)
  have_node || packages+=(nodejs npm)
  have python3 || packages+=(python3)
  have apt-get || return 0
  for package in ${packages[@]+"${packages[@]}"}; do
    note "installing with apt: $package"
    apt_install "$package" || note "not to be had: $package"
  done
  use_newer_node
}

# The distribution's node may be too old for the client libraries; npm has newer ones.
use_newer_node() {
  local tools="$ROOT/build/node"
  if have_node || ! have npm; then return 0; fi
  if [ ! -x "$tools/node_modules/node/bin/node" ]; then
    note "installing with npm: node@22"
    npm install --prefix "$tools" --no-audit --no-fund --loglevel=error node@22 >/dev/null || return 0
  fi
  PATH="$tools/node_modules/node/bin:$PATH"
}
