#!/bin/sh
# digest-content.sh CMAKE DIRECTORY OUTPUT
#
# Writes the names of all files and directories below DIRECTORY, and the digests of the files, to
# OUTPUT. If the new text equals the old one, OUTPUT keeps its time, so that nothing is built again.
set -eu
{
  cd "$2"
  find . | LC_ALL=C sort
  find . -type f -exec "$1" -E sha256sum {} + | LC_ALL=C sort
} >"$3.new"
"$1" -E copy_if_different "$3.new" "$3"
