#!/usr/bin/env bash
# Compiles the sources that a Mac builds, without a Mac. Nothing is linked or run.
#
#   mac-compile.sh product        the product, for the oldest supported macOS on both processors
#   mac-compile.sh tests          the tests of a Mac's build and their support library, for the same
#   mac-compile.sh newest         the product, for a new macOS: deprecated calls are errors
#
# The headers of the C++ library are clang's with the availability of a Mac's. Tests/Doubles declares
# CoreFoundation, CommonCrypto and the POSIX headers that differ on a Mac. The rest of the C library
# is musl's, without the functions that a Mac's headers do not declare
# (Tests/Doubles/darwin-headers/not-declared). Of GoogleTest, only the headers are used.
set -euo pipefail
cd "$(dirname "$0")/../.."
. script/lib/commands.sh
part=${1:-}
require_one_of "$part" product tests newest

require_packages clang libc++-dev musl-dev libgtest-dev "${build_packages[@]}"

# The path of a header, as the compiler finds it here.
first_header() { # OPTION HEADER
  echo "#include <$2>" | clang++ "$1" -x c++ -E -H - 2>&1 >/dev/null | sed -n 's/^\. //p'
}

headers=build/mac-compile-$part
rm -rf "$headers"
mkdir -p "$headers"
for name in zlib.h minizip utf8proc.h CLI nlohmann gtest; do
  ln -s "/usr/include/$name" "$headers/$name"
done
ln -s "$(first_header -O0 zconf.h)" "$headers/zconf.h"
libcxx=$(first_header -stdlib=libc++ version)
libcxx=${libcxx%/version}
[ -n "$libcxx" ] || {
  echo 'mac-compile: the headers of libc++ are missing' >&2
  exit 69
}
# As the library of a Mac is configured: with the availability of what is in the system's own.
sed '/VENDOR_AVAILABILITY/d' "$(first_header -stdlib=libc++ __config_site)" >"$headers/__config_site"
musl=(/usr/include/*-linux-musl)
mkdir -p "$headers/narrow/sys"
while read -r -a words; do
  {
    printf '#define %s\n' "${words[@]:1}" | sed 's/\(\S*\)$/& hidden_\1/'
    printf '#include_next <%s>\n' "${words[0]}"
    printf '#undef %s\n' "${words[@]:1}"
  } >"$headers/narrow/${words[0]}"
done < <(grep -v '^#' Tests/Doubles/darwin-headers/not-declared)

flags=(-std=c++17 -fsyntax-only -nostdinc++ -nostdlibinc -D_GNU_SOURCE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wunguarded-availability -Werror
  -include Tests/Doubles/darwin-headers/types.h
  -isystem Tests/Doubles/darwin-headers -isystem "$headers" -isystem "$headers/minizip"
  -isystem "$libcxx" -isystem "$headers/narrow" -isystem "${musl[0]}"
  -ITests/Doubles -ITools/webresources -DWEBRESOURCES_VERSION='"0"' -DBUNDLE_PROBE='""' -DBUNDLE_EXECUTABLES='"MacOS"'
  -DBUNDLE_EXECUTABLE='"WebResourceInstaller"' -DSANITIZED=0)
while read -r directory; do
  flags+=("-I$directory")
done < <(git ls-files '*.h' | grep -E '^(Include|Common|Platform|Tests/(Common|Source|Support))/' |
  grep -v '^Platform/posix/' | sed 's|/[^/]*$||' | sort -u)

# Compiles sources for a target, and names those that it refuses.
compile() { # TARGET SOURCE...
  local target=$1
  shift
  printf '%s\0' "$@" | xargs -0 -P "$(nproc)" -n 1 clang++ -target "$target" "${flags[@]}"
}

# Each must be refused, by this error: or the check would pass whatever it is given.
refuse() { # TARGET ERROR PROGRAM
  printf '%s\n' "$3" >"$headers/control.cpp"
  if printed=$(compile "$1" "$headers/control.cpp" 2>&1) || ! grep -q "$2" <<<"$printed"; then
    printf 'mac-compile: not refused for %s:\n%s\n%s\n' "$2" "$3" "$printed" >&2
    exit 1
  fi
}

mapfile -t product < <(git ls-files 'Common/*.cpp' 'Source/*.cpp' 'Platform/apple/*.cpp' \
  'Tools/*.cpp' script/lib/mac-facts.cpp)
mapfile -t tests < <(git ls-files 'Tests/Common/*.cpp' 'Tests/Source/*.cpp' 'Tests/Tools/*.cpp' \
  'Tests/Support/*.cpp' Tests/Platform/PreferencesDomainTest.cpp Tests/Platform/Sha256Test.cpp |
  grep -vE '/(StoredRecordPosix|Failing.*|FailuresTest|VerifyTest)\.cpp$')

# Compiles sources for the oldest supported macOS. Each call that a Mac does not have is an error.
compile_for_oldest() { # SOURCE...
  local target
  for target in x86_64-apple-macos11 arm64-apple-macos11; do
    refuse "$target" 'only available on macOS 13.0 or newer' \
      '#include <sys/stat.h>
      int main() { return mkfifoat(0, "", 0); }'
    refuse "$target" "undeclared identifier 'renameat2'" \
      '#include <fcntl.h>
      #include <unistd.h>
      int main() { return renameat2(0, "", 0, "", 0); }'
    refuse "$target" "undeclared identifier 'mkdtemp'" \
      '#include <cstdlib>
      int main() { char path[] = "/tmp/XXXXXX"; return mkdtemp(path) == nullptr; }'
    refuse "$target" "'to_chars' is unavailable" \
      '#include <charconv>
      int main() { char text[64]; return std::to_chars(text, text + 64, 0.5).ptr == text; }'
    refuse "$target" 'implicit conversion' \
      '#include <sys/stat.h>
      mode_t Mode(unsigned int mode) { return mode; }'
    compile "$target" "$@"
    echo "$target: $# sources compile"
  done
  refuse x86_64-apple-macos10.14 'introduced in macOS 10.15' \
    '#include <filesystem>
    int main() { return std::filesystem::exists("x"); }'
}

# Compiles sources for a new macOS. A deprecated call is an error, because warnings are.
compile_for_newest() { # SOURCE...
  local target=arm64-apple-macos26
  refuse "$target" 'deprecated in macOS 26.0' \
    '#include <spawn.h>
    int Change(posix_spawn_file_actions_t* a) {
      return posix_spawn_file_actions_addchdir_np(a, "/");
    }'
  compile "$target" "$@"
  echo "$target: $# sources compile"
}

case $part in
  product) compile_for_oldest "${product[@]}" ;;
  tests) compile_for_oldest "${tests[@]}" ;;
  newest) compile_for_newest "${product[@]}" ;;
esac
