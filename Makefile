# Front door: every target installs what is missing, configures, builds and runs.
BUILD     ?= build
PREFIX    ?= /usr/local
JOBS      ?= $(shell nproc)
CMAKE_ARGS ?=

.PHONY: all deps configure build test demo bench install test-asan test-tsan format clean

all: build

deps:
	@bash tools/install-deps.sh

configure: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release $(CMAKE_ARGS)

build: configure
	cmake --build $(BUILD) -j$(JOBS)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j$(JOBS) --timeout 600

demo: build
	@if [ -x $(BUILD)/apps/nordacam/nordacam ]; then $(BUILD)/apps/nordacam/nordacam demo; \
	else echo "nordacam was not built"; exit 1; fi

bench: build
	$(BUILD)/bench/nordabench $(BENCH_ARGS)

install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

test-asan:
	$(MAKE) test BUILD=build-asan CMAKE_ARGS="-DNORDA_SANITIZE=address -DNORDA_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo"

test-tsan:
	$(MAKE) test BUILD=build-tsan CMAKE_ARGS="-DNORDA_SANITIZE=thread -DNORDA_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo"

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	rm -rf build build-asan build-tsan
