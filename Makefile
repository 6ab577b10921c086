# Top-level entry points: make demo, make check, make bench, make install.
PREFIX ?= /usr/local
JOBS ?= 2
FLAVORS = opt asan m32

.PHONY: all demo check bench install deps clean

all:
	cmake -S . -B build/opt -DXB_FLAVOR=opt
	cmake --build build/opt -j$(JOBS)

# Tools the builds and tests need, from Debian, when run as root on a
# machine that lacks them.
deps:
	@bash scripts/deps.sh

demo: deps
	cmake -S . -B build/opt -DXB_FLAVOR=opt -DXB_TESTS=OFF
	cmake --build build/opt -j$(JOBS)
	@bash scripts/demo.sh build/opt

# The three flavours; m32 is built and tested only where the machine can
# (scripts/check.sh says in one line when it is not).
check: deps
	@JOBS=$(JOBS) FLAVORS="$(FLAVORS)" bash scripts/check.sh

bench: deps
	cmake -S . -B build/bench -DXB_FLAVOR=opt -DXB_TESTS=OFF -DXB_BENCH=ON -DCMAKE_BUILD_TYPE=Release
	cmake --build build/bench -j$(JOBS)
	@bash scripts/runall.sh build/bench/benchmarks --benchmark_counters_tabular=true

install: deps
	cmake -S . -B build/install -DXB_FLAVOR=opt -DXB_TESTS=OFF -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=$(PREFIX)
	cmake --build build/install -j$(JOBS)
	cmake --install build/install

clean:
	rm -rf build
