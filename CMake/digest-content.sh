#!/bin/sh
# digest-content.sh CMAKE DIRECTORY OUTPUT
#
# Writes the names of everything in DIRECTORY, and the digests of its files, to OUTPUT. If that is
# what OUTPUT holds already, its time stays the same, so that nothing is built again.
set -eu
{
  cd "$2"
  find . | LC_ALL=C sort
  find . -type f -exec "$1" -E sha256sum {} + | LC_ALL=C sort
} >"$3.new"
"$1" -E copy_if_different "$3.new" "$3"
