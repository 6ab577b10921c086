#!/usr/bin/env bash
# Install what the builds and tests need from Debian, when we are root and
# something is missing. Quiet when everything is there.
set -e
need=()
command -v cmake >/dev/null || need+=(cmake)
command -v g++ >/dev/null || need+=(g++)
[ -d /usr/src/googletest ] || need+=(libgtest-dev)
[ -f /usr/include/benchmark/benchmark.h ] || need+=(libbenchmark-dev)
# 32-bit runtime and headers for the -m32 build.
[ -d /usr/lib/gcc/x86_64-linux-gnu/12/32 ] || need+=(g++-multilib)
/usr/bin/python3 -c 'import dbfread' 2>/dev/null || need+=(python3-dbfread)
command -v readelf >/dev/null || need+=(binutils)
if [ ${#need[@]} -eq 0 ]; then exit 0; fi
if [ "$(id -u)" != 0 ]; then
  echo "missing: ${need[*]} (run as root, or install them)" >&2
  exit 1
fi
echo "installing: ${need[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq "${need[@]}" >/dev/null
