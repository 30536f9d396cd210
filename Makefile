# Front door: every target installs what is missing, configures, builds and runs.
BUILD     ?= build
PREFIX    ?= /usr/local
JOBS      ?= $(shell nproc)
CMAKE_ARGS ?=
CTEST_ARGS ?=
# Sanitizer builds: no benchmarks, debug info at a moderate optimisation. The host program is
# built where its tests run (they stay out of thread-checked builds).
SANITIZER_CMAKE_ARGS = -DNORDA_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo
# The tests that run several threads at once: the store's notifier, commands arriving during
# cycles, the image write hand-over and super-resolution threads, the recorder and socket server
# commands, the coordinate value queries, the pipeline's own thread. The thread checker runs these.
TSAN_TESTS ?= ^(DataProxy|Commands|Pipeline|OffsetElementTest|PxmRecorderElement|SocketServerElement|CoordinateValueElement|ImageWriteTest|ImageBufferElement)\\.

.PHONY: all deps configure build test demo bench bench-python install test-asan test-tsan fuzz load soak format clean

all: build

deps:
	@bash tools/install-deps.sh

configure: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release $(CMAKE_ARGS)

build: configure
	cmake --build $(BUILD) -j$(JOBS)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j$(JOBS) --timeout 600 $(CTEST_ARGS)

demo: build
	@if [ -x $(BUILD)/apps/nordacam/nordacam ]; then $(BUILD)/apps/nordacam/nordacam demo; \
	else echo "nordacam was not built"; exit 1; fi

bench: build
	$(BUILD)/bench/nordabench $(BENCH_ARGS)

# The Python module against the C++ library on the same files (bench/python/bench_io.py).
bench-python: build
	PYTHONPATH=$(BUILD)/python python3 bench/python/bench_io.py $(BUILD)

install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

test-asan:
	ASAN_OPTIONS="detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1" \
	UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1" \
	    $(MAKE) test BUILD=build-asan CMAKE_ARGS="-DNORDA_SANITIZE=address $(SANITIZER_CMAKE_ARGS) -DNORDA_BUILD_APPS=ON"

test-tsan:
	TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$(CURDIR)/tests/sanitizers/tsan.supp" \
	    $(MAKE) test BUILD=build-tsan CMAKE_ARGS="-DNORDA_SANITIZE=thread $(SANITIZER_CMAKE_ARGS) -DNORDA_BUILD_APPS=OFF" \
	    CTEST_ARGS='-R "$(TSAN_TESTS)"'

FUZZ_SECONDS ?= 60
# Each fuzz target for FUZZ_SECONDS, from its seeds in fuzz/corpus/<target> (finds land in build-fuzz/).
fuzz:
	@NORDA_EXTRA_PACKAGES="clang libclang-rt-14-dev" bash tools/install-deps.sh
	CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNORDA_SANITIZE=address \
	    -DNORDA_FUZZ=ON -DNORDA_BUILD_TESTS=OFF -DNORDA_BUILD_BENCH=OFF -DNORDA_BUILD_APPS=ON
	cmake --build build-fuzz -j$(JOBS)
	@set -e; for t in build-fuzz/fuzz/fuzz_*; do \
	    name=$$(basename $$t); mkdir -p build-fuzz/corpus/$$name build-fuzz/finds/$$name; \
	    echo "== $$name ($(FUZZ_SECONDS) s)"; \
	    $$t -max_total_time=$(FUZZ_SECONDS) -rss_limit_mb=2048 -timeout=10 -print_final_stats=1 \
	        -artifact_prefix=build-fuzz/finds/$$name/ build-fuzz/corpus/$$name fuzz/corpus/$$name; \
	done

# `nordacam serve` under load (20 stream clients, some stalled, the API polled) for 5 minutes with
# figures every 30 s; `soak` for 10 minutes. The test suite runs the same test for 30 s.
LOAD_TEST = $(BUILD)/tests/nordalib_tests --gtest_filter='NordacamServerLoad.*'
load: build
	NORDA_LOG_LEVEL=warning NORDA_LOAD_SECONDS=300 NORDA_LOAD_REPORT_SECONDS=30 $(LOAD_TEST)

soak: build
	NORDA_LOG_LEVEL=warning NORDA_LOAD_SECONDS=600 NORDA_LOAD_REPORT_SECONDS=60 $(LOAD_TEST)

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	rm -rf build build-asan build-tsan build-fuzz
