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

check: deps
	@set -e; for f in $(FLAVORS); do \
	  echo "=== $$f build ==="; \
	  cmake -S . -B build/$$f -DXB_FLAVOR=$$f -DXB_TESTS=ON >/dev/null; \
	  cmake --build build/$$f -j$(JOBS); \
	  ( cd build/$$f && ctest --output-on-failure -j$(JOBS) ) || exit 1; \
	done; echo "=== all three builds passed ==="

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
