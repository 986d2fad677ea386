# Front door. `make demo` runs the main job, `make test` runs every test.
JOBS      ?= $(shell nproc 2>/dev/null || echo 2)
BUILD     ?= build
CMAKE_ARGS ?=

.PHONY: all deps configure build demo test test-asan test-tsan test-windows bench fuzz fuzz-run clean

all: build

deps:
	@bash scripts/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_ARGS) >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

# The main job: nginx on loopback, `tmain get` twice through one cache, ls, cache status.
demo: configure
	@cmake --build $(BUILD) -j $(JOBS) --target tmain_tool tmain_demo
	@./$(BUILD)/tmain_demo

test: build
	@cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# Sanitizer builds use clang; each has its own build tree.
test-asan: deps
	@cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
	  -DTMAIN_SANITIZE=address >/dev/null
	@cmake --build build-asan -j $(JOBS)
	@cd build-asan && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --output-on-failure -j $(JOBS)

test-tsan: deps
	@cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
	  -DTMAIN_SANITIZE=thread >/dev/null
	@cmake --build build-tsan -j $(JOBS)
	@cd build-tsan && TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 ctest --output-on-failure -j $(JOBS)

# The Windows lane: the x86_64 library and test suites under wine, then the
# i686 tmain.dll package with its exports and a consumer (scripts/test-windows.sh).
test-windows: build
	@JOBS=$(JOBS) bash scripts/test-windows.sh $(BUILD)

bench: deps
	@cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DTMAIN_BUILD_TESTS=OFF -DTMAIN_BUILD_BENCH=ON >/dev/null
	@cmake --build build-bench -j $(JOBS)
	@bash bench/run.sh build-bench

fuzz: deps
	@cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
	  -DTMAIN_BUILD_TESTS=OFF -DTMAIN_BUILD_EXAMPLES=OFF -DTMAIN_BUILD_FUZZ=ON -DBUILD_SHARED_LIBS=OFF \
	  -DTMAIN_SANITIZE=address >/dev/null
	@cmake --build build-fuzz -j $(JOBS)

# Runs every harness for FUZZ_TIME seconds, one after the other, starting from
# its corpus; new inputs go to build-fuzz/corpus/<name>, and only those that
# add coverage are merged back into tests/fuzz/corpus/<name>. Crashes are
# saved as build-fuzz/crash-<name>-*.
FUZZ_TIME ?= 60
fuzz-run: fuzz
	@for src in tests/fuzz/*.cc; do \
	  name=$$(basename $$src .cc); mkdir -p build-fuzz/corpus/$$name tests/fuzz/corpus/$$name; \
	  echo "== $$name ($(FUZZ_TIME)s)"; \
	  ./build-fuzz/$$name -max_total_time=$(FUZZ_TIME) -rss_limit_mb=2048 -timeout=25 \
	    -artifact_prefix=build-fuzz/crash-$$name- build-fuzz/corpus/$$name tests/fuzz/corpus/$$name || exit 1; \
	  ./build-fuzz/$$name -merge=1 tests/fuzz/corpus/$$name build-fuzz/corpus/$$name || exit 1; \
	done

clean:
	rm -rf build build-asan build-tsan build-bench build-fuzz
