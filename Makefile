# Entry points: `make run` (main job), `make test`, `make bench`, `make fuzz`.
# Each installs what is missing first (scripts/setup), then builds with CMake.
#   make test SANITIZE=address,undefined   tests under ASan and UBSan
#   make test SANITIZE=thread              tests under TSan
SANITIZE ?=
JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 30
# CI treats warnings as errors.
WERROR ?= $(if $(filter true,$(CI)),ON,OFF)

ifeq ($(SANITIZE),)
BUILD ?= build
BUILD_TYPE ?= RelWithDebInfo
else
BUILD ?= build-$(subst $(comma),-,$(SANITIZE))
BUILD_TYPE ?= Debug
endif
comma := ,

.PHONY: all setup build run test bench fuzz clean

all: build

setup:
	@scripts/setup

build: setup
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DBEXO_SANITIZE=$(SANITIZE) -DBEXO_WERROR=$(WERROR)
	cmake --build $(BUILD) -j $(JOBS)

run: build
	scripts/main-job $(BUILD)/tools/bexo

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

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
