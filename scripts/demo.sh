#!/usr/bin/env bash
# Run every example program in a fresh temporary directory.
set -e
build=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
for exe in "$build"/examples/*; do
  [ -x "$exe" ] || continue
  echo "--- $(basename "$exe") ---"
  "$exe"
done
