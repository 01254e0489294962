# shellcheck shell=bash
# Sourced by the commands of script/. Each calls begin first.

# The Debian packages for the build without tests.
# shellcheck disable=SC2034 # used where this file is sourced
build_packages=(cmake ninja-build g++ pkgconf zlib1g-dev libminizip-dev libpugixml-dev
  libcli11-dev nlohmann-json3-dev libutf8proc-dev nettle-dev)

# The additional packages for the tests, with other zip programs and a real web package.
# shellcheck disable=SC2034
test_packages=(libgtest-dev nlohmann-json3-dev python3 python3-jsonschema strace util-linux zip unzip
  7zip libarchive-tools valgrind libc6-dbg libjs-dojo-dojox e2fsprogs exfat-fuse exfatprogs
  procps make)

# The additional packages for the fuzzers.
# shellcheck disable=SC2034
fuzz_packages=(clang libclang-rt-dev python3)

# Usage --------------------------------------------------------------------------------------------

# Prints the first comment of the command. $0 may be relative to an earlier working directory.
print_usage() {
  local here=${BASH_SOURCE[0]%/*} command=${0##*/}
  local file=$here/../$command
  [ -f "$file" ] || file=$here/$command
  awk 'NR > 1 && (!/^#/ || /^# shellcheck/) { exit } NR > 1 { sub(/^# ?/, ""); print }' "$file"
}

usage_error() { # MESSAGE
  printf '%s: %s\n\n' "${0##*/}" "$1" >&2
  print_usage >&2
  exit 64
}

handle_help() { # ARGUMENT...
  case ${1:-} in
    --help | -h)
      print_usage
      exit
      ;;
  esac
}

# Fails with the usage if the word is not one of the choices.
require_one_of() { # WORD CHOICE...
  local word=$1 choice
  shift
  for choice in "$@"; do
    [ "$word" != "$choice" ] || return 0
  done
  usage_error "unknown argument: $word"
}

# Cleanup ------------------------------------------------------------------------------------------

job=''       # the process group of the running job
watcher=''   # the process group that shows the progress
leftovers=() # directories to remove at the end

# Answers --help and makes a directory for the temporary files of this command and its children. At
# the end, also by a signal, the command ends its children and removes the directory.
begin() { # ARGUMENT...
  handle_help "$@"
  [ -z "${RECORD:-}" ] || record "$@"
  trap finish EXIT
  trap 'exit 129' HUP
  trap 'exit 130' INT
  trap 'exit 143' TERM
  TMPDIR=$(mktemp -d "${TMPDIR:-/tmp}/web-resources.XXXXXX")
  leftovers+=("$TMPDIR")
  chmod 755 "$TMPDIR" # some tests give up their rights
  export TMPDIR
}

finish() {
  trap '' HUP INT TERM
  end_group "$watcher"
  end_group "$job"
  chmod -R u+rwX "${leftovers[@]}" 2>/dev/null || true
  rm -rf --one-file-system "${leftovers[@]}"
}

# Ends a process group: by SIGTERM, so that programs clean up, and after five seconds by SIGKILL.
end_group() { # [GROUP]
  [ -n "$1" ] || return 0
  local left=50
  kill -TERM -- "-$1" 2>/dev/null || return 0
  while kill -0 -- "-$1" 2>/dev/null && [ $((left -= 1)) -gt 0 ]; do
    sleep 0.1
  done
  kill -KILL -- "-$1" 2>/dev/null || true
}

# Runs a command in a process group, which finish() ends.
in_group() { # COMMAND...
  local status=0
  set -m
  "$@" </dev/null &
  job=$!
  set +m
  wait "$job" || status=$?
  job=''
  return "$status"
}

# Output -------------------------------------------------------------------------------------------

# Runs a command, and prints the output only if the command fails.
quietly() { # COMMAND...
  local log status=0
  log=$(mktemp)
  in_group "$@" >"$log" 2>&1 || status=$?
  [ "$status" = 0 ] || cat "$log" >&2
  rm -f "$log"
  return "$status"
}

# Runs a command and shows the progress: a counter on a terminal, or a line twice a minute.
with_progress() { # WHAT LOG COMMAND...
  local what=$1 log=$2 status=0
  shift 2
  : >"$log"
  set -m
  show_progress "$what" "$log" &
  watcher=$!
  set +m
  in_group "$@" >"$log" 2>&1 || status=$?
  end_group "$watcher"
  watcher=''
  [ ! -t 1 ] || printf '\r\e[K'
  return "$status"
}

show_progress() { # WHAT LOG
  local pause=1 count
  [ -t 1 ] || pause=30
  while sleep "$pause"; do
    # ninja's "[12/345]" and ctest's "12/345 Test".
    count=$(tail -n 20 "$2" | sed -n 's|^\[* *\([0-9]*\)/\([0-9]*\)[] ].*|\1 of \2|p' | tail -n 1)
    if [ -t 1 ]; then
      printf '\r\e[K   %s: %s' "$1" "${count:-…}"
    else
      printf '   %s: %s\n' "$1" "${count:-started}"
    fi
  done
}

# Runs this command again, and exits. If the command succeeds, each line of the output replaces the
# rows of this command in Documentation/testing-figures.md.
record() { # ARGUMENT...
  local command="${0##*/} $*" file=Documentation/testing-figures.md output commit when
  output=$(RECORD='' "script/${0##*/}" "$@" | tee >(cat >&2))
  commit=$(git describe --always --dirty=+)
  when=$(date -u +%F)
  {
    sed '/^|---/q' "$file"
    {
      sed '1,/^|---/d' "$file" | awk -F' [|] ' -v of="| \`$command\`" '$1 != of'
      # Without the lines of the build and the lines that only show details or the progress.
      sed -e '/^  /d' -e '/^==/d' -e '/^[-.]*$/d' -e '/^\[[0-9]/d' -e '/^Ran /d' -e '/^OK$/d' -e 's/^ *//' -e 's/|/\\|/g' \
        -e "s~.*~| \`$command\` | & | $when | $commit |~" <<<"$output"
    } | LC_ALL=C sort -s -t'|' -k2,2
  } >"$file.new"
  mv "$file.new" "$file"
  exit
}

# Building and testing -----------------------------------------------------------------------------

# Installs the missing Debian packages. On another system, the build names missing libraries.
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
      echo "  apt-get update && apt-get install --no-install-recommends ${missing[*]}" >&2
      exit 69
    fi
    as_root=(sudo)
  fi
  echo "Installing Debian packages: ${missing[*]}"
  local log install=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive
    apt-get -qq install --no-install-recommends "${missing[@]}")
  log=$(mktemp)
  # In the foreground, because sudo may need the terminal. A failure may mean that package lists are
  # missing or too old.
  "${install[@]}" >"$log" 2>&1 ||
    { "${as_root[@]}" apt-get -qq update && "${install[@]}"; } >"$log" 2>&1 || {
    cat "$log" >&2
    exit 69
  }
}

# Configures and builds a preset.
build_preset() { # PRESET [TARGET]
  local log targets=(${2:+--target "$2"})
  log=$(mktemp)
  echo "== $1: build"
  quietly cmake --preset "$1" -Werror=dev
  with_progress "$1: build" "$log" cmake --build --preset "$1" "${targets[@]}" \
    --parallel "$(nproc)" || {
    local status=$?
    cat "$log" >&2
    return "$status"
  }
}

# Runs the tests of a preset, and prints the failed tests and the summary. The tests with the label
# "elsewhere" are for script/test-elsewhere; LABELS adds more labels to leave out. The files of the tests are in memory, because on a disk
# the tests wait half of the time for syncs. Two tests more than processors run at the same time,
# because some tests wait for locks and for other processes.
run_tests() { # PRESET [LABELS]
  local log status=0 in_memory=()
  [ "$(uname)" = Darwin ] || in_memory=(Tests/Support/in-memory)
  log=$(mktemp)
  echo "== $1: test"
  with_progress "$1: test" "$log" \
    "${in_memory[@]}" ctest --preset "$1" --label-exclude "elsewhere${2:-}" \
    --parallel "$(($(nproc) + 2))" || status=$?
  sed -e '/^ *Start /d' -e '/ Passed /d' "$log"
  return "$status"
}
