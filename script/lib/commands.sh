# shellcheck shell=bash
# Sourced by the commands of script/.

# Everything the build needs, test libraries excepted.
# shellcheck disable=SC2034 # used where this file is sourced
build_packages=(cmake ninja-build g++ pkgconf zlib1g-dev libminizip-dev libplist-dev
  libcli11-dev nlohmann-json3-dev libutf8proc-dev)

# What the tests need besides: makers and readers of other hands, and a real web package.
# shellcheck disable=SC2034
test_packages=(libgtest-dev nlohmann-json3-dev python3 python3-jsonschema util-linux zip unzip
  p7zip-full libarchive-tools valgrind libc6-dbg libjs-dojo-dojox)

# What the fuzzers need besides the build.
# shellcheck disable=SC2034
fuzz_packages=(clang-14 libclang-rt-14-dev python3)

# Installs those of the Debian packages that are missing. On another system they are left to the
# person and the build says what it does not find.
require_packages() { # PACKAGE...
  command -v dpkg-query >/dev/null || return 0
  local missing
  mapfile -t missing < <(comm -23 <(printf '%s\n' "$@" | sort -u) <(
    dpkg-query -W -f='${Package} ${db:Status-Status}\n' "$@" 2>/dev/null |
      sed -n 's/ installed$//p' | sort -u))
  [ ${#missing[@]} -gt 0 ] || return 0
  local as_root=()
  if [ "$(id -u)" != 0 ]; then
    if ! command -v sudo >/dev/null || { [ ! -t 0 ] && ! sudo -n true 2>/dev/null; }; then
      echo "Debian packages are missing. Run this as root, then try again:" >&2
      echo "  apt-get install --no-install-recommends ${missing[*]}" >&2
      exit 69
    fi
    as_root=(sudo)
  fi
  echo "Installing Debian packages: ${missing[*]}"
  local install=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive
    apt-get -qq install --no-install-recommends "${missing[@]}")
  # Package lists that are missing or too old show as a failure.
  quietly "${install[@]}" 2>/dev/null ||
    { quietly "${as_root[@]}" apt-get -qq update && quietly "${install[@]}"; }
}

# Runs a command whose output is of interest only when it fails.
quietly() { # COMMAND...
  local output
  output=$("$@" 2>&1) || {
    local status=$?
    printf '%s\n' "$output" >&2
    return "$status"
  }
}

# Runs the tests of a preset and shows, of hundreds, those that fail and the summary.
run_tests() { # PRESET
  ctest --preset "$1" --parallel "$(nproc)" | sed -e '/^ *Start /d' -e '/ Passed /d'
}
