# Front of the CMake builds. `make test` is what CI and developers run.
JOBS ?= $(shell nproc)
# Clones in other folders (CI's) share the compiler cache.
export CCACHE_BASEDIR := $(CURDIR)
export CCACHE_NOHASHDIR := 1
NATIVE := build/native
WINDOWS := build/windows
# The Linux builds serve the tests: their update checks go to a closed port on loopback, never out. The Windows
# build keeps the real server unless UPDATE_SERVER names another (CI does, for its Wine runs).
TEST_SERVER := -DORY_UPDATE_SERVER=http://127.0.0.1:9
WINDOWS_SERVER := $(if $(UPDATE_SERVER),-DORY_UPDATE_SERVER=$(UPDATE_SERVER),)

.PHONY: all setup test native windows tsan tsan-build asan asan-build fuzz bench tidy tidy-built smoke clean \
  format demo demo-windows soak

all: native

setup:
	@scripts/setup-packages

native: setup
	@cmake -S . -B $(NATIVE) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(TEST_SERVER) >/dev/null
	@cmake --build $(NATIVE) -j $(JOBS)

# The real-speed flights load the machine little and wait on the wall clock: several at once.
FLIGHT_JOBS ?= 4
# Every test but the flights.
FAST_TESTS = -L "unit|threaded"
test: native
	@cd $(NATIVE) && ctest --output-on-failure -j $(JOBS) $(FAST_TESTS)
	@cd $(NATIVE) && ctest --output-on-failure -j $(FLIGHT_JOBS) -L flight

windows: setup
	@scripts/build-windows-deps
	@cmake -S . -B $(WINDOWS) -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake -DCMAKE_BUILD_TYPE=Release $(WINDOWS_SERVER) >/dev/null
	@cmake --build $(WINDOWS) -j $(JOBS)
	@scripts/make-data $(WINDOWS)/program
	@scripts/make-release $(WINDOWS)

# The program for a few minutes at Minneapolis with real traffic, between the stand-ins: report and picture in
# build/demo. DEMO_SECONDS sets how long.
demo: native
	@scripts/demo

# The same with the Windows program under Wine: report and picture in build/demo-windows.
demo-windows: native windows
	@scripts/demo --windows

# A busy sky through restarts, memory watched: report in build/soak. SOAK_SECONDS (200) sets the length.
soak: native
	@scripts/soak

# Each sanitizer build compiles only the tests it runs (and the tools they start).
tsan: tsan-build
	@cd build/tsan && ctest --output-on-failure -j $(JOBS) -L threaded

tsan-build: setup
	@cmake -S . -B build/tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORY_SANITIZE=thread $(TEST_SERVER) >/dev/null
	@cmake --build build/tsan -j $(JOBS) --target tests_threaded

asan: asan-build
	@cd build/asan && LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp ctest --output-on-failure -j $(JOBS) $(FAST_TESTS)

asan-build: setup
	@cmake -S . -B build/asan -DCMAKE_BUILD_TYPE=Debug -DORY_SANITIZE=address $(TEST_SERVER) >/dev/null
	@cmake --build build/asan -j $(JOBS) --target tests_unit tests_threaded

# Each libFuzzer target (clang) runs FUZZ_SECONDS on its corpus folder; new inputs stay in build/fuzz/corpus.
FUZZ_SECONDS ?= 60
REAL_DATA ?= $(firstword $(wildcard ../shared/data/real ../../shared/data/real /work/shared/data/real))
fuzz: setup
	@CXX=clang++ CC=clang cmake -S . -B build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORY_SANITIZE=fuzzer >/dev/null
	@cmake --build build/fuzz -j $(JOBS) --target feed_line_fuzz bgl_fuzz airport_file_fuzz aircraft_cfg_fuzz \
	  simlink_fuzz_records
	@mkdir -p build/fuzz/corpus/feed build/fuzz/corpus/bgl build/fuzz/corpus/airport_file build/fuzz/corpus/aircraft_cfg
	@build/fuzz/tests/feed/feed_line_fuzz -max_total_time=$(FUZZ_SECONDS) build/fuzz/corpus/feed tests/feed/corpus
	@cp -n $(REAL_DATA)/bgl/*.[bB][gG][lL] build/fuzz/corpus/bgl/ 2>/dev/null || true
	@build/fuzz/tests/scenery/bgl_fuzz -max_total_time=$(FUZZ_SECONDS) build/fuzz/corpus/bgl
	@cp -n tests/parking/airport_file_seed.xml build/fuzz/corpus/airport_file/
	@build/fuzz/tests/parking/airport_file_fuzz -max_total_time=$(FUZZ_SECONDS) -dict=tests/parking/airport_file.dict \
	  build/fuzz/corpus/airport_file
	@cp -n $(REAL_DATA)/aircraft_cfg/*.cfg build/fuzz/corpus/aircraft_cfg/ 2>/dev/null || true
	@build/fuzz/tests/liveries/aircraft_cfg_fuzz -max_total_time=$(FUZZ_SECONDS) -dict=tests/liveries/aircraft_cfg.dict \
	  build/fuzz/corpus/aircraft_cfg
	@scripts/fuzz-records build/fuzz

# The native build is optimised (-O2) and builds the benchmarks with everything else.
bench: native
	@for b in $$(find $(NATIVE)/bench -path '*/CMakeFiles' -prune -o -type f -executable -print | sort); do echo "== $$b"; $$b; done

smoke: windows
	@scripts/wine-smoke

# The naming rules of .clang-tidy over every source file of the native build; a fault fails. tidy-built takes
# the native build as it stands (CI runs it beside the tests).
tidy: native
	@$(MAKE) --no-print-directory tidy-built

tidy-built:
	@run-clang-tidy-14 -p $(NATIVE) -j $(JOBS) -quiet '$(CURDIR)/(src|tools|tests|bench)/' >$(NATIVE)/tidy.log 2>&1 \
	  || { sed -E 's/\x1b\[[0-9;]*m//g' $(NATIVE)/tidy.log | grep -E '(error|warning):' | sort -u; echo "tidy: naming faults, see $(NATIVE)/tidy.log"; exit 1; }
	@echo "tidy: no naming faults"

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	@rm -rf build
