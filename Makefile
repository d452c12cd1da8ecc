# Two commands do everything on a fresh Debian 12 machine (as root):
#   make demo   set up, build, run the main job
#   make test   set up, build both architectures, run the tests
# make bench runs the benchmarks in bench/ and prints one line per ratio.
BUILD ?= build
JOBS ?= $(shell nproc)

.PHONY: all setup build build-x64 build-x86 test demo bench sdk clean

all: build

setup:
	@sh tools/bootstrap.sh

$(BUILD)/x64/build.ninja:
	cmake -S . -B $(BUILD)/x64 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-x86_64.cmake

$(BUILD)/x86/build.ninja:
	cmake -S . -B $(BUILD)/x86 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-i686.cmake

build-x64: setup $(BUILD)/x64/build.ninja
	cmake --build $(BUILD)/x64 -j $(JOBS)

build-x86: setup $(BUILD)/x86/build.ninja
	cmake --build $(BUILD)/x86 -j $(JOBS)

build: build-x64 build-x86

# The i686 run comes first: without a 32-bit Wine it only reports its tests
# as skipped, and the x64 summary closes the output.
test: build
	cd $(BUILD)/x86 && ctest --output-on-failure
	cd $(BUILD)/x64 && ctest --output-on-failure --no-tests=error

demo: build
	@sh tools/demo.sh $(BUILD)

bench: build
	@sh tools/bench.sh $(BUILD)

# build/sdk and build/sdk.zip for plug-in authors
sdk: build
	@sh tools/sdk.sh $(BUILD)

clean:
	rm -rf $(BUILD)
