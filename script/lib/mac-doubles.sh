#!/usr/bin/env bash
# Everything that is tested of a Mac without one: its back end on a double of CoreFoundation, the
# installer on a double of its file system, script/package-macos on doubles of its commands. They are
# part of every build; this runs them alone, and compiles what a Mac builds. script/test-elsewhere mac
# calls this.
set -euo pipefail
cd "$(dirname "$0")/../.."
. script/lib/commands.sh

require_packages "${build_packages[@]}" "${test_packages[@]}"
quietly cmake --preset release
quietly cmake --build --preset release --parallel "$(nproc)"
ctest --preset release --parallel "$(nproc)" --no-tests=error \
  --tests-regex '^(Apple|Darwin|Mac|PackageMacOS)' |
  sed -e '/^ *Start /d'
script/lib/mac-compile.sh
