# Thin wrapper around CMake. `make demo` and `make test` install what is missing first.
BUILD ?= build
JOBS ?= $(shell nproc)
SECONDS ?= 60
CMAKE_FLAGS ?=

.PHONY: all deps build demo test test-asan bench fuzz format clean

all: build

deps:
	@scripts/install-deps

build: deps
	@cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD) -j$(JOBS)

demo: build
	@scripts/demo $(BUILD)

test: build
	@cd $(BUILD) && ctest --output-on-failure --timeout 300

# The whole test suite under ASan + UBSan with leak detection; leaks inside system libraries only
# are suppressed (tests/lsan.supp). Every sanitizer report ends the process that made it.
ASAN_ENV = ASAN_OPTIONS=detect_leaks=1 \
	LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp \
	UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

test-asan: deps
	@CC=clang CXX=clang++ cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVEXA_SANITIZE=ON >/dev/null
	@cmake --build build-asan -j$(JOBS)
	@cd build-asan && $(ASAN_ENV) ctest --output-on-failure --timeout 600

bench: deps
	@cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DVEXA_BENCH=ON -DVEXA_TESTS=OFF >/dev/null
	@cmake --build build-bench -j$(JOBS)
	@bench/run build-bench

fuzz: deps
	@CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVEXA_FUZZ=ON -DVEXA_TESTS=OFF >/dev/null
	@cmake --build build-fuzz -j$(JOBS) --target vexa_fuzzers
	@fuzz/run-all build-fuzz $(SECONDS)

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	@rm -rf $(BUILD) build-asan build-bench build-fuzz
