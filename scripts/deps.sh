#!/usr/bin/env bash
# Install what the builds and tests need from Debian, when we are root and
# something is missing. Quiet when everything is there. The 32-bit
# compiler (g++-multilib) is optional: without it `make check` skips the
# m32 flavour and says so (scripts/check.sh).
set -e
need=()
command -v cmake >/dev/null || need+=(cmake)
command -v g++ >/dev/null || need+=(g++)
[ -d /usr/src/googletest ] || need+=(libgtest-dev)
[ -f /usr/include/benchmark/benchmark.h ] || need+=(libbenchmark-dev)
/usr/bin/python3 -c 'import dbfread' 2>/dev/null || need+=(python3-dbfread)
command -v readelf >/dev/null || need+=(binutils)
want=()
if [ "$(bash "$(dirname "$0")/m32probe.sh" 2>/dev/null)" = none ]; then want+=(g++-multilib); fi
if [ ${#need[@]} -eq 0 ] && [ ${#want[@]} -eq 0 ]; then exit 0; fi
if [ "$(id -u)" != 0 ]; then
  [ ${#want[@]} -eq 0 ] || echo "optional, missing: ${want[*]} (the m32 flavour is then skipped)" >&2
  [ ${#need[@]} -eq 0 ] && exit 0
  echo "missing: ${need[*]} (run as root, or install them)" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq || true
if [ ${#need[@]} -gt 0 ]; then
  echo "installing: ${need[*]}"
  apt-get install -y -qq "${need[@]}" >/dev/null
fi
if [ ${#want[@]} -gt 0 ]; then
  echo "installing: ${want[*]}"
  apt-get install -y -qq "${want[@]}" >/dev/null 2>&1 || echo "could not install ${want[*]}: the m32 flavour will be skipped" >&2
fi
