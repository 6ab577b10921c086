#!/usr/bin/env bash
# Run every program in a folder of a build, in a fresh temporary directory
# (the examples and benchmarks write their own files there).
# Usage: runall.sh FOLDER [arguments for each program]
set -e
dir=$(cd "$1" && pwd)
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
for exe in "$dir"/*; do
  [ -x "$exe" ] || continue
  echo "--- $(basename "$exe") ---"
  "$exe" "$@"
done
