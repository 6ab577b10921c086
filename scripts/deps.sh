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
# The NDX suite's second opinion: xbase64's headers, and its 32-bit library
# (its 64-bit build writes broken trees), from the i386 architecture.
[ -f /usr/include/xbase64/xbase64.h ] || need+=(libxbase64-dev)
i386=0
if [ ! -f /usr/lib/i386-linux-gnu/libxbase64.so.1 ]; then
  need+=(libxbase64-1:i386)
  dpkg --print-foreign-architectures | grep -qx i386 || i386=1
fi
get_packages() {
  if [ "$(id -u)" != 0 ]; then
    echo "missing: $* (run as root, or install them)" >&2
    exit 1
  fi
  echo "installing: $*"
  export DEBIAN_FRONTEND=noninteractive
  [ $i386 = 0 ] || dpkg --add-architecture i386
  i386=0
  apt-get update -qq
  apt-get install -y -qq "$@" >/dev/null
}
[ ${#need[@]} -eq 0 ] || get_packages "${need[@]}"
# A kernel without IA-32 emulation cannot run the -m32 flavour's tests or
# the 32-bit xbase64 writer: they run under qemu-i386 then.
if ! command -v qemu-i386 >/dev/null; then
  probe=$(mktemp -d)
  printf 'int main(void) { return 0; }\n' >"$probe/p.c"
  if gcc -m32 -o "$probe/p" "$probe/p.c" 2>/dev/null && ! "$probe/p" 2>/dev/null; then
    rm -rf "$probe"
    get_packages qemu-user
  fi
  rm -rf "$probe"
fi
exit 0
