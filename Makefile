# Entry points: `make run` (main job), `make test`, `make bench`, `make fuzz`.
# Each installs what is missing first (scripts/setup), then builds with CMake.
#   make test SANITIZE=address,undefined   tests under ASan and UBSan
#   make test SANITIZE=thread              tests under TSan
#   make test ARCH=i386                    build and tests as 32-bit x86 code
SANITIZE ?=
ARCH ?=
JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 30
# CI treats warnings as errors.
WERROR ?= $(if $(filter true,$(CI)),ON,OFF)

# ARCH=i386: everything runs inside the i386 Debian root of scripts/setup-i386.
ifeq ($(ARCH),i386)
SETUP := scripts/setup-i386
IN_ARCH := scripts/in-i386
ARCH_DIR := -i386
else ifeq ($(ARCH),)
SETUP := scripts/setup
else
$(error ARCH=$(ARCH): the targets are the host's and ARCH=i386)
endif

ifeq ($(SANITIZE),)
BUILD ?= build$(ARCH_DIR)
BUILD_TYPE ?= RelWithDebInfo
else
BUILD ?= build$(ARCH_DIR)-$(subst $(comma),-,$(SANITIZE))
BUILD_TYPE ?= Debug
endif
comma := ,

.PHONY: all setup build run test bench fuzz clean

all: build

setup:
	@$(SETUP)

build: setup
	$(IN_ARCH) cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DBEXO_SANITIZE=$(SANITIZE) -DBEXO_WERROR=$(WERROR)
	$(IN_ARCH) cmake --build $(BUILD) -j $(JOBS)
ifeq ($(ARCH),i386)
	$(IN_ARCH) file -L $(BUILD)/libbexocommon.so.1 | grep 'ELF 32-bit .* Intel 80386'
endif

run: build
	$(IN_ARCH) scripts/main-job $(BUILD)/tools/bexo

test: build
	$(IN_ARCH) ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

bench: setup
	cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DBEXO_BUILD_BENCH=ON -DBEXO_BUILD_TESTS=OFF
	cmake --build build-bench -j $(JOBS)
	scripts/run-benchmarks build-bench/bench

fuzz: setup
	CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBEXO_BUILD_FUZZ=ON -DBEXO_BUILD_TESTS=OFF
	cmake --build build-fuzz -j $(JOBS)
	scripts/run-fuzzers build-fuzz/fuzz $(FUZZ_SECONDS)

clean:
	rm -rf build build-* 
