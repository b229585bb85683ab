# The two commands of a fresh machine: `make run` (build, then the demo on the built-in clip) and
# `make test` (build and pass every test: release, ASan+UBSan, and the 32-bit layout check).

JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE ?= cmake
BUILD ?= build
ASAN_BUILD ?= build-asan

.PHONY: all deps build run test test-release test-asan layout32 bench clean

all: build

deps:
	@bash scripts/deps.sh

$(BUILD)/CMakeCache.txt: | deps
	$(CMAKE) -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release

build: deps $(BUILD)/CMakeCache.txt
	$(CMAKE) --build $(BUILD) -j $(JOBS)

run: build
	./$(BUILD)/tools/framedsp demo --out out

test: test-release test-asan layout32
	@echo "make test: all suites passed"

test-release: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

$(ASAN_BUILD)/CMakeCache.txt: | deps
	$(CMAKE) -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFRAMEDSP_SANITIZE=ON -DFRAMEDSP_BENCH=OFF

test-asan: deps $(ASAN_BUILD)/CMakeCache.txt
	$(CMAKE) --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --output-on-failure -j $(JOBS)

# Every record's 32-bit (ILP32) offsets, checked by the compiler with -m32.  Needs only the
# compiler's freestanding headers, so it runs without a 32-bit C library.
layout32:
	@if echo 'int x;' | $(CXX) -m32 -x c++ -fsyntax-only - >/dev/null 2>&1; then \
	  $(CXX) -m32 -ffreestanding -std=c++17 -fsyntax-only -Iinclude tests/layout_check.cpp && \
	  echo "layout32: ILP32 record offsets checked"; \
	else \
	  echo "layout32: SKIPPED (this compiler cannot target -m32)"; \
	fi

bench: build
	./$(BUILD)/bench/framedsp_bench --benchmark_counters_tabular=true

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) out
