#!/usr/bin/env bash
# Run every benchmark in a scratch directory (they write their own tables).
set -e
build=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
for exe in "$build"/benchmarks/*; do
  [ -x "$exe" ] || continue
  echo "--- $(basename "$exe") ---"
  "$exe" --benchmark_counters_tabular=true
done
