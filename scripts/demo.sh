#!/usr/bin/env bash
# make demo: run every example program in one fresh temporary directory,
# then show what xbtool makes of the files they left there.
# Usage: demo.sh BUILD_DIR
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
tool="$build/tools/xbtool"
for cmd in "info customers.dbf" "dump customers.dbf" "dump people.dbf --json" "check people.dbf people.ntx"; do
  echo "--- xbtool $cmd ---"
  "$tool" $cmd
done
