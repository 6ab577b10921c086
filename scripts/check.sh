#!/usr/bin/env bash
# make check: configure, build and test each flavour in turn: optimised,
# AddressSanitizer + UndefinedBehaviorSanitizer, and 32-bit (-m32). Whether
# 32-bit programs can be built and run here is probed once, first: a kernel
# without IA-32 emulation still gets the m32 flavour compiled, and a machine
# without the 32-bit compiler skips it; either way one line says so.
set -e
cd "$(dirname "$0")/.."
jobs=${JOBS:-2}
m32=$(bash scripts/m32probe.sh) || true
ran=()
for f in ${FLAVORS:-opt asan m32}; do
  if [ "$f" = m32 ] && [ "$m32" = none ]; then
    echo "=== m32 SKIPPED: no 32-bit C++ compiler here (install g++-multilib); not built, not tested ==="
    continue
  fi
  echo "=== $f build ==="
  cmake -S . -B "build/$f" -DXB_FLAVOR="$f" -DXB_TESTS=ON >/dev/null
  cmake --build "build/$f" -j"$jobs"
  if [ "$f" = m32 ] && [ "$m32" = build ]; then
    echo "=== m32 TESTS SKIPPED: built, but this machine cannot run 32-bit programs ==="
    continue
  fi
  (cd "build/$f" && ctest --output-on-failure -j"$jobs")
  ran+=("$f")
done
echo "=== tests passed in: ${ran[*]} ==="
