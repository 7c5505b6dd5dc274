# Thin front end over CMake.  `make demo` and `make check` set everything up
# on a fresh Debian machine.
# Build folders are those of CMakePresets.json (release, asan, fuzz, bench).
BUILD       := build
ASAN_BUILD  := build-asan
FUZZ_BUILD  := build-fuzz
BENCH_BUILD := build-bench
PREFIX     ?= /usr/local
FUZZ_SECONDS ?= 60
JOBS       ?= $(shell nproc)

.PHONY: all demo check test deps build bench asan fuzz install clean tables format

all: build

# Packages the build and tests need; installed with apt-get when run as root.
DEPS := cmake ninja-build g++ clang pkg-config libgtest-dev libgmock-dev \
        libbenchmark-dev libclang-rt-14-dev binutils python3
# Peer libraries for the benches and cross-checks: installed when available.
PEER_DEPS := libgsm1-dev libspandsp-dev libbcg729-dev libopencore-amrnb-dev \
        libopencore-amrwb-dev libvo-amrwbenc-dev libfftw3-dev libspeexdsp-dev \
        libwebrtc-audio-processing-dev libavcodec-dev

deps:
	@sh tools/install-deps.sh $(DEPS) --optional $(PEER_DEPS)

$(BUILD)/build.ninja:
	cmake --preset release

build: $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

demo: deps build
	$(BUILD)/bin/kvosc demo

check: deps build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

bench: deps
	cmake --preset bench
	cmake --build --preset bench -j $(JOBS)
	$(BENCH_BUILD)/bin/kvosc_bench --benchmark_min_time=0.05

asan: deps
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

fuzz: deps
	cmake --preset fuzz
	cmake --build --preset fuzz -j $(JOBS)
	sh tools/run-fuzz.sh $(FUZZ_BUILD)/bin $(FUZZ_SECONDS)

install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

tables:
	sh tools/regen-tables.sh

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD) $(BENCH_BUILD)
