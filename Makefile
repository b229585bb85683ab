# The two commands of a fresh machine: `make run` (build, then the demo on the built-in clip) and
# `make test` (build and pass every test: release, ASan+UBSan, the 32-bit layout check, the
# Windows checks, the fuzz corpus replay and the ThreadSanitizer stress tests; the last three say
# SKIPPED without mingw-w64, clang's libFuzzer or TSan).

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
FUZZ_TARGETS := copy filter compare handles scaler subpixel_filter scaler_helper subpixel_scaler_helper subpixel_scaler mipmaps \
                motion_vectors frame_rate

.PHONY: all deps build run test test-release test-asan layout32 windows windows64 windows-test windows-test32 \
        windows-test64 windows-check bench bench-frc bench-motion clean \
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
# `FRAMEDSP_OPTIONAL_DEPS=g++-mingw-w64-i686 make deps` installs it).
WIN_BUILD ?= build-win32
MINGW_CXX ?= i686-w64-mingw32-g++
# 32-bit Wine (Debian's wine32, which needs the i386 architecture) runs its smoke programs.
WINE ?= $(firstword $(wildcard /usr/lib/wine/wine) $(shell command -v wine32 2>/dev/null))

$(WIN_BUILD)/CMakeCache.txt:
	$(CMAKE) -S . -B $(WIN_BUILD) -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-i686.cmake -DCMAKE_BUILD_TYPE=Release \
	  -DFRAMEDSP_TESTS=OFF -DFRAMEDSP_BENCH=OFF -DFRAMEDSP_TOOLS=OFF

windows: $(WIN_BUILD)/CMakeCache.txt
	$(CMAKE) --build $(WIN_BUILD) -j $(JOBS)
	@echo "windows: $(WIN_BUILD)/framedsp.dll"

# The 64-bit Windows build: framedsp.dll, the test suite (googletest compiled from Debian's
# sources with the same compiler) and the CLI as tools/framedsp.exe.  Debian:
# g++-mingw-w64-x86-64-posix, and wine64 to run them.
WIN64_BUILD ?= build-win64
MINGW64_CXX ?= x86_64-w64-mingw32-g++-posix
WINE64 ?= $(firstword $(wildcard /usr/lib/wine/wine64) $(shell command -v wine64 2>/dev/null))
GTEST_SOURCE ?= /usr/src/googletest

$(WIN64_BUILD)/CMakeCache.txt:
	$(CMAKE) -S . -B $(WIN64_BUILD) -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-x86_64.cmake -DCMAKE_BUILD_TYPE=Release \
	  -DFRAMEDSP_BENCH=OFF -DFRAMEDSP_GTEST_SOURCE=$(GTEST_SOURCE)

windows64: $(WIN64_BUILD)/CMakeCache.txt
	$(CMAKE) --build $(WIN64_BUILD) -j $(JOBS)
	@echo "windows64: $(WIN64_BUILD)/framedsp.dll, tests/framedsp_tests.exe, tools/framedsp.exe"

# Both DLLs' export tables and imports, the 32-bit import library; then, where Wine is installed,
# the smoke programs (one loads the DLL by name, one links its import library), and for 64-bit
# the whole test suite in two shards, the C host and trace tests, and the CLI's demo.  Wine runs
# headless in a private prefix under the build folder.
WINE_ENV = WINEPREFIX=$$PWD/wineprefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" DISPLAY=
windows-test: windows-test32 windows-test64

windows-test32: windows
	bash tests/check_dll.sh $(WIN_BUILD) .
	@if [ -n "$(WINE)" ]; then \
	  cd $(WIN_BUILD) && export $(WINE_ENV) && \
	  $(WINE) framedsp_win_smoke.exe && $(WINE) framedsp_win_linked.exe; \
	else \
	  echo "windows-test32: 32-bit Wine not installed; the DLL's export table was checked, nothing was run"; \
	fi

windows-test64: windows64
	bash tests/check_dll.sh $(WIN64_BUILD) . 64
	@if [ -z "$(WINE64)" ]; then \
	  echo "windows-test64: wine64 not installed; the DLL's export table was checked, nothing was run"; \
	  exit 0; \
	fi; \
	cd $(WIN64_BUILD) && export $(WINE_ENV) && \
	$(WINE64) framedsp_win_smoke.exe && $(WINE64) framedsp_win_linked.exe && \
	pids=; for i in 0 1; do \
	  GTEST_TOTAL_SHARDS=2 GTEST_SHARD_INDEX=$$i $(WINE64) tests/framedsp_tests.exe --gtest_brief=1 \
	    >tests/shard$$i.log 2>&1 & pids="$$pids $$!"; \
	done; \
	ok=0; for p in $$pids; do wait $$p || ok=1; done; \
	grep -h -v -E '^(Running main|\[==========\]|\[  PASSED  \]|\[  SKIPPED \] [0-9]+ test)' tests/shard[01].log; \
	awk '/^\[  PASSED  \] [0-9]+ test/ {p += $$4} /^\[  SKIPPED \] [0-9]+ test/ {s += $$4} \
	     /^\[  FAILED  \] .*\([0-9]+ ms\)/ {f++} \
	     END {printf "windows-test64: framedsp_tests.exe under wine64: %d passed, %d failed, %d skipped\n", p, f, s}' \
	  tests/shard[01].log; \
	test $$ok = 0 && \
	ctest --output-on-failure -E '^framedsp_tests$$' && \
	rm -rf demo && $(WINE64) tools/framedsp.exe demo --out demo >demo.log 2>&1 && \
	echo "windows-test64: framedsp.exe demo wrote $$(ls demo | wc -l) files into $(WIN64_BUILD)/demo"

# Part of `make test`: the Windows checks for each compiler that is installed, SKIPPED otherwise.
windows-check:
	@if command -v $(MINGW_CXX) >/dev/null 2>&1; then \
	  $(MAKE) --no-print-directory windows-test32; \
	else \
	  echo "windows-check: 32-bit SKIPPED ($(MINGW_CXX) not installed; FRAMEDSP_OPTIONAL_DEPS=g++-mingw-w64-i686 make deps)"; \
	fi
	@if command -v $(MINGW64_CXX) >/dev/null 2>&1 && [ -f $(GTEST_SOURCE)/googletest/CMakeLists.txt ]; then \
	  $(MAKE) --no-print-directory windows-test64; \
	else \
	  echo "windows-check: 64-bit SKIPPED ($(MINGW64_CXX) not installed; FRAMEDSP_OPTIONAL_DEPS=\"g++-mingw-w64-x86-64-posix wine64\" make deps)"; \
	fi

bench: build
	./$(BUILD)/bench/framedsp_bench --benchmark_counters_tabular=true

# Frame-rate conversion against ground truth (a few minutes; not part of `make test`): PSNR per case
# and phase and time per frame for repeat, blend, ffmpeg's minterpolate and `framedsp convert-rate`,
# beside the converter's targets; the report goes to $(BUILD)/bench-frc/report.md.  Installs the
# Debian packages of BENCH_FRC_PACKAGES that are missing, each on its own (the Python modules are
# needed, ffmpeg is optional); `make bench-frc BENCH_FRC_PACKAGES=` installs nothing.
BENCH_PYTHON ?= /usr/bin/python3
BENCH_FRC_PACKAGES ?= python3-numpy python3-skimage ffmpeg
bench-frc: $(BUILD)/CMakeCache.txt
	@for p in $(BENCH_FRC_PACKAGES); do FRAMEDSP_OPTIONAL_DEPS=$$p bash scripts/deps.sh; done
	$(CMAKE) --build $(BUILD) -j $(JOBS) --target framedsp_cli
	$(BENCH_PYTHON) bench/frc/frc_bench.py --framedsp $(BUILD)/tools/framedsp --out $(BUILD)/bench-frc

# `make bench-motion`: the accuracy of DspCreateMotionVectors on photographs moved by known whole-
# and quarter-pixel translations (bench/motion/accuracy.py, a table of cases, forward and backward).
bench-motion: $(BUILD)/CMakeCache.txt
	@for p in python3-numpy python3-skimage; do FRAMEDSP_OPTIONAL_DEPS=$$p bash scripts/deps.sh; done
	$(CMAKE) --build $(BUILD) -j $(JOBS) --target framedsp_cli
	$(BENCH_PYTHON) bench/motion/accuracy.py --framedsp $(BUILD)/tools/framedsp

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
TSAN_FILTER = *OperationBands*:HandleStress*:FrameRateConvert.OneConverterOnSeveralThreads
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
	rm -rf $(BUILD) $(ASAN_BUILD) $(WIN_BUILD) $(WIN64_BUILD) $(FUZZ_BUILD) $(TSAN_BUILD) out
