# The two commands of a fresh machine: `make run` (build, then the demo on the built-in clip) and
# `make test` (build and pass every test: release, ASan+UBSan, and the 32-bit layout check).

JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE ?= cmake
BUILD ?= build
ASAN_BUILD ?= build-asan

.PHONY: all deps build run test test-release test-asan layout32 windows windows-test windows-check bench clean

all: build

deps:
	@bash scripts/deps.sh

$(BUILD)/CMakeCache.txt: | deps
	$(CMAKE) -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release

build: deps $(BUILD)/CMakeCache.txt
	$(CMAKE) --build $(BUILD) -j $(JOBS)

run: build
	./$(BUILD)/tools/framedsp demo --out out

test: test-release test-asan layout32 windows-check
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

# The 32-bit Windows DLL, cross-compiled with mingw-w64 (Debian: g++-mingw-w64-i686;
# `FRAMEDSP_OPTIONAL_DEPS="g++-mingw-w64-i686 wine" make deps` installs it).
WIN_BUILD ?= build-win32
MINGW_CXX ?= i686-w64-mingw32-g++
WINE ?= wine

$(WIN_BUILD)/CMakeCache.txt:
	$(CMAKE) -S . -B $(WIN_BUILD) -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-i686.cmake -DCMAKE_BUILD_TYPE=Release \
	  -DFRAMEDSP_TESTS=OFF -DFRAMEDSP_BENCH=OFF -DFRAMEDSP_TOOLS=OFF

windows: $(WIN_BUILD)/CMakeCache.txt
	$(CMAKE) --build $(WIN_BUILD) -j $(JOBS)
	@echo "windows: $(WIN_BUILD)/framedsp.dll"

# The export table and imports, then (with Wine) the smoke programs: one loads the DLL by name,
# one links it through the import library.
windows-test: windows
	bash tests/check_dll.sh $(WIN_BUILD) .
	@if command -v $(WINE) >/dev/null 2>&1; then \
	  cd $(WIN_BUILD) && export WINEPREFIX=$$PWD/wineprefix WINEDEBUG=-all && \
	  $(WINE) framedsp_win_smoke.exe && $(WINE) framedsp_win_linked.exe; \
	else \
	  echo "windows-test: Wine not installed; the DLL's export table was checked, nothing was run"; \
	fi

# Part of `make test`: runs windows-test when the cross compiler is installed, says so otherwise.
windows-check:
	@if command -v $(MINGW_CXX) >/dev/null 2>&1; then \
	  $(MAKE) --no-print-directory windows-test; \
	else \
	  echo "windows-check: SKIPPED ($(MINGW_CXX) not installed; FRAMEDSP_OPTIONAL_DEPS=g++-mingw-w64-i686 make deps)"; \
	fi

bench: build
	./$(BUILD)/bench/framedsp_bench --benchmark_counters_tabular=true

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(WIN_BUILD) out
