#!/usr/bin/env bash
# Install what the builds and tests need from Debian, when we are root and
# something is missing. Quiet when everything is there. The 32-bit
# compiler (g++-multilib) is optional: without it `make check` skips the
# m32 flavour and says so (scripts/check.sh).
set -e
here=$(dirname "$0")
need=()
command -v cmake >/dev/null || need+=(cmake)
command -v g++ >/dev/null || need+=(g++)
[ -d /usr/src/googletest ] || need+=(libgtest-dev)
[ -f /usr/include/benchmark/benchmark.h ] || need+=(libbenchmark-dev)
/usr/bin/python3 -c 'import dbfread' 2>/dev/null || need+=(python3-dbfread)
command -v readelf >/dev/null || need+=(binutils)
# The NDX suite's second opinion: xbase64's headers, and its 32-bit library
# (its 64-bit build writes broken trees), from the i386 architecture.
[ -f /usr/include/xbase64/xbase64.h ] || need+=(libxbase64-dev)
i386=0
if [ ! -f /usr/lib/i386-linux-gnu/libxbase64.so.1 ]; then
  need+=(libxbase64-1:i386)
  dpkg --print-foreign-architectures | grep -qx i386 || i386=1
fi
want=()
probe=$(bash "$here/m32probe.sh" 2>/dev/null || true)
if [ "$probe" = none ]; then want+=(g++-multilib); fi
# A kernel that cannot run 32-bit programs runs the 32-bit xbase64 writer
# under qemu-i386.
if [ "$probe" = build ] && ! command -v qemu-i386 >/dev/null; then need+=(qemu-user); fi
if [ ${#need[@]} -eq 0 ] && [ ${#want[@]} -eq 0 ]; then exit 0; fi
if [ "$(id -u)" != 0 ]; then
  [ ${#want[@]} -eq 0 ] || echo "optional, missing: ${want[*]} (the m32 flavour is then skipped)" >&2
  [ ${#need[@]} -eq 0 ] && exit 0
  echo "missing: ${need[*]} (run as root, or install them)" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
[ $i386 = 0 ] || dpkg --add-architecture i386
apt-get update -qq || true
if [ ${#need[@]} -gt 0 ]; then
  echo "installing: ${need[*]}"
  apt-get install -y -qq "${need[@]}" >/dev/null
fi
if [ ${#want[@]} -gt 0 ]; then
  echo "installing: ${want[*]}"
  apt-get install -y -qq "${want[@]}" >/dev/null 2>&1 || echo "could not install ${want[*]}: the m32 flavour will be skipped" >&2
fi
# With the 32-bit compiler just installed, the writer may still need qemu.
if [ ${#want[@]} -gt 0 ] && [ "$(bash "$here/m32probe.sh" 2>/dev/null || true)" = build ] && ! command -v qemu-i386 >/dev/null; then
  echo "installing: qemu-user"
  apt-get install -y -qq qemu-user >/dev/null
fi
exit 0
