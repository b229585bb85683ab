# The two commands of a fresh machine: `make run` (build, then the demo on the built-in clip) and
# `make test` (build and pass every test: release, ASan+UBSan, the 32-bit layout check, the fuzz
# corpus replay and the ThreadSanitizer stress tests; the last two say SKIPPED without clang's
# libFuzzer or TSan).

SHELL := /bin/bash

JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE ?= cmake
BUILD ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
TSAN_BUILD ?= build-tsan
FUZZ_CXX ?= clang++
FUZZ_CC ?= clang
FUZZ_SECONDS ?= 60
FUZZ_TARGETS := copy filter compare handles scaler subpixel_filter scaler_helper mipmaps

.PHONY: all deps build run test test-release test-asan layout32 windows windows-test windows-check bench clean \
        fuzz fuzz-build fuzz-corpus tsan mutate balance

all: build

deps:
	@bash scripts/deps.sh

$(BUILD)/CMakeCache.txt: | deps
	$(CMAKE) -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release

build: deps $(BUILD)/CMakeCache.txt
	$(CMAKE) --build $(BUILD) -j $(JOBS)

run: build
	./$(BUILD)/tools/framedsp demo --out out

test: test-release test-asan layout32 windows-check fuzz-corpus tsan
	@echo "make test: all suites passed"
	@$(MAKE) --no-print-directory balance

# Non-blank lines of the tests (tests/, fuzz/) against the code (src/, include/, tools/, bench/);
# the owner's balance is tests at a quarter to a third of the two together.
BALANCE_FILES = -type f \( -name '*.c' -o -name '*.cc' -o -name '*.cpp' -o -name '*.cxx' -o -name '*.h' \
  -o -name '*.hh' -o -name '*.hpp' -o -name '*.inc' -o -name '*.py' -o -name '*.sh' \)
balance:
	@t=$$(find tests fuzz $(BALANCE_FILES) -exec cat {} + | grep -cv '^[[:space:]]*$$'); \
	c=$$(find src include tools bench $(BALANCE_FILES) -exec cat {} + | grep -cv '^[[:space:]]*$$'); \
	echo "balance: $$t test lines, $$c code lines; tests are $$((100 * t / (t + c)))% of the $$((t + c)) lines"

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

# libFuzzer targets (clang with -fsanitize=fuzzer).  `make fuzz` runs each for FUZZ_SECONDS with
# its committed corpus as the seed; `make fuzz-corpus` (part of `make test`) replays the corpus only.
FUZZ_PROBE = echo 'extern "C" int LLVMFuzzerTestOneInput(const unsigned char *, unsigned long) { return 0; }' | \
  $(FUZZ_CXX) -fsanitize=fuzzer,address,undefined -x c++ - -o /dev/null >/dev/null 2>&1

$(FUZZ_BUILD)/CMakeCache.txt:
	CC=$(FUZZ_CC) CXX=$(FUZZ_CXX) $(CMAKE) -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DFRAMEDSP_FUZZ=ON -DFRAMEDSP_TESTS=OFF -DFRAMEDSP_BENCH=OFF -DFRAMEDSP_TOOLS=OFF

fuzz-build: $(FUZZ_BUILD)/CMakeCache.txt
	$(CMAKE) --build $(FUZZ_BUILD) -j $(JOBS)

fuzz:
	@if ! $(FUZZ_PROBE); then echo "fuzz: SKIPPED ($(FUZZ_CXX) has no libFuzzer)"; exit 0; fi; \
	$(MAKE) fuzz-build && mkdir -p $(FUZZ_BUILD)/corpus && \
	for t in $(FUZZ_TARGETS); do \
	  mkdir -p $(FUZZ_BUILD)/corpus/$$t && \
	  ./$(FUZZ_BUILD)/fuzz/fuzz_$$t $(FUZZ_BUILD)/corpus/$$t fuzz/corpus/$$t -max_total_time=$(FUZZ_SECONDS) \
	    -print_final_stats=1 -artifact_prefix=$(FUZZ_BUILD)/$$t- 2>&1 | \
	    grep -E 'stat::number_of_executed_units|ERROR|fuzz check|runtime error' ; \
	  test $${PIPESTATUS[0]} -eq 0 || exit 1; \
	done

fuzz-corpus:
	@if ! $(FUZZ_PROBE); then echo "fuzz-corpus: SKIPPED ($(FUZZ_CXX) has no libFuzzer)"; exit 0; fi; \
	$(MAKE) fuzz-build && \
	for t in $(FUZZ_TARGETS); do \
	  ./$(FUZZ_BUILD)/fuzz/fuzz_$$t fuzz/corpus/$$t/* >$(FUZZ_BUILD)/corpus-$$t.log 2>&1 || \
	    { tail -40 $(FUZZ_BUILD)/corpus-$$t.log; exit 1; }; \
	  echo "fuzz-corpus: $$t: $$(ls fuzz/corpus/$$t | wc -l) inputs replayed"; \
	done

# The band and handle stress tests under ThreadSanitizer.
TSAN_FILTER = *OperationBands*:HandleStress*
tsan:
	@if ! echo 'int main(){}' | $(CXX) -fsanitize=thread -x c++ - -o /dev/null >/dev/null 2>&1; then \
	  echo "tsan: SKIPPED ($(CXX) has no ThreadSanitizer)"; exit 0; fi; \
	test -f $(TSAN_BUILD)/CMakeCache.txt || $(CMAKE) -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DFRAMEDSP_TSAN=ON -DFRAMEDSP_BENCH=OFF -DFRAMEDSP_TOOLS=OFF; \
	$(CMAKE) --build $(TSAN_BUILD) -j $(JOBS) --target framedsp_tests && \
	TSAN_OPTIONS=halt_on_error=1 ./$(TSAN_BUILD)/tests/framedsp_tests --gtest_filter='$(TSAN_FILTER)'

# The mutation measure of the suite: MUTANTS faults drawn from SEED, planted one at a time in a
# snapshot of REV (build-mutate/), at low priority on one job.  Resumes an interrupted run.
MUTANTS ?= 400
SEED ?= 1
REV ?= HEAD
mutate:
	python3 scripts/mutate --rev $(REV) -n $(MUTANTS) --seed $(SEED) $(MUTATE_FLAGS)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(WIN_BUILD) $(FUZZ_BUILD) $(TSAN_BUILD) out
