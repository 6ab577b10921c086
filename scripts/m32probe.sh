#!/usr/bin/env bash
# Can this machine build and run 32-bit x86 programs? Compiles and runs a
# trivial C++ program with -m32. Prints one word and exits with its status:
#   run   (0)  both work
#   build (1)  it compiles, but the kernel will not run it (no IA-32 emulation)
#   none  (2)  no 32-bit compiler and libraries (g++-multilib missing)
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
printf '#include <vector>\nint main() { std::vector<int> v(1); return v[0]; }\n' > "$dir/p.cpp"
if ! "${CXX:-c++}" -m32 "$dir/p.cpp" -o "$dir/p" >/dev/null 2>&1; then echo none; exit 2; fi
if ! "$dir/p" >/dev/null 2>&1; then echo build; exit 1; fi
echo run
