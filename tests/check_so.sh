#!/usr/bin/env bash
# The shared object may need only libc and libm at run time, and may export
# only the library's own names: DB..., getDBsamba, getDBxHarbour.
set -u
so="$1"
fail=0
needed=$(readelf -d "$so" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
for lib in $needed; do
  case "$lib" in
    libc.so.*|libm.so.*) ;;
    *) echo "unexpected NEEDED entry: $lib"; fail=1 ;;
  esac
done
soname=$(readelf -d "$so" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
if [ "$soname" != "libxbfiles.so.1" ]; then echo "SONAME is '$soname'"; fail=1; fi
# Defined, global or weak, dynamic symbols.
exports=$(nm -D --defined-only "$so" | awk '$2 ~ /^[A-Z]$/ {print $3}' | sed 's/@.*//')
count=0
for sym in $exports; do
  case "$sym" in
    DB*|getDBsamba|getDBxHarbour) count=$((count+1)) ;;
    _init|_fini|_edata|_end|__bss_start) ;;
    *) echo "unexpected export: $sym"; fail=1 ;;
  esac
done
if [ "$count" -lt 10 ]; then echo "only $count library symbols exported"; fail=1; fi
if [ $fail -eq 0 ]; then echo "ok: NEEDED [$needed], $count exports"; fi
exit $fail
