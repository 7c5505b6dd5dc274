# Thin front end over CMake.  `make demo` and `make check` set everything up
# on a fresh Debian machine.
BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
BENCH_BUILD ?= build-bench
PREFIX     ?= /usr/local
FUZZ_SECONDS ?= 60
JOBS       ?= $(shell nproc)
CMAKE_GEN  := -G Ninja

.PHONY: all demo check test deps build bench asan fuzz install clean tables format

all: build

# Packages the build and tests need; installed with apt-get when run as root.
DEPS := cmake ninja-build g++ clang pkg-config libgtest-dev libgmock-dev \
        libbenchmark-dev libclang-rt-14-dev binutils python3 \
        libgsm1-dev libspandsp-dev libbcg729-dev libopencore-amrnb-dev \
        libopencore-amrwb-dev libvo-amrwbenc-dev libfftw3-dev

deps:
	@sh tools/install-deps.sh $(DEPS)

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Release

build: $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

demo: deps build
	$(BUILD)/bin/kvosc demo

check: deps build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

bench: deps
	cmake -S . -B $(BENCH_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Release -DKVOSC_TESTS=OFF -DKVOSC_BENCH=ON
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	$(BENCH_BUILD)/bin/kvosc_bench --benchmark_min_time=0.05

asan: deps
	CC=clang CXX=clang++ cmake -S . -B $(ASAN_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKVOSC_SANITIZE=ON
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 ctest --output-on-failure -j $(JOBS)

fuzz: deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKVOSC_TESTS=OFF -DKVOSC_FUZZ=ON
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	sh tools/run-fuzz.sh $(FUZZ_BUILD)/bin $(FUZZ_SECONDS)

install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

tables:
	sh tools/regen-tables.sh

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD) $(BENCH_BUILD)
