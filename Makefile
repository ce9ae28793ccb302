# Entry points: `make run` starts the simulated camera with the web server in
# front; `make test` runs the whole suite. Both install what is missing first.
PRESET ?= default
PORT ?= 8080
CAMERAS ?= 1
SERVER ?= lighttpd
BUILD_DIR := $(if $(filter sanitize,$(PRESET)),build-san,build)
JOBS ?= $(shell nproc)

.PHONY: all setup setup-test build run test unit e2e bench soak test-aarch64 clean

all: build

setup:
	@scripts/setup.sh

setup-test:
	@scripts/setup.sh --test

build: setup
	@cmake --preset $(PRESET) >/dev/null
	@cmake --build --preset $(PRESET) -j $(JOBS)

# Running the camera needs the responder and the simulators only.
RUN_TARGETS := web logcollector syssim camsim

run: setup
	@$(if $(filter nginx,$(SERVER)),scripts/setup.sh nginx openssl,true)
	@cmake --preset $(PRESET) >/dev/null
	@cmake --build --preset $(PRESET) -j $(JOBS) --target $(RUN_TARGETS)
	@PORT=$(PORT) CAMERAS=$(CAMERAS) SERVER=$(SERVER) scripts/run.sh $(BUILD_DIR)

test: setup-test build
	@ctest --preset $(PRESET) --output-on-failure

unit: build
	@ctest --preset $(PRESET) --output-on-failure -L unit

e2e: setup-test build
	@ctest --preset $(PRESET) --output-on-failure -L e2e

# Not part of `make test`: starts the simulated camera and a do-nothing
# responder, drives both with wrk and writes bench/RESULTS.md.
bench: build
	@scripts/bench.sh $(BUILD_DIR)

# Not part of `make test`: a million mixed requests with faults on the way;
# the figures go to bench/RESULTS.md. SOAK=N for another count.
soak: build
	@scripts/soak.sh $(BUILD_DIR) $(SOAK)

# The AArch64 build: cross-built, its unit tests under qemu-user, its
# end-to-end tests under a private binfmt_misc (scripts/test-aarch64.sh).
test-aarch64: setup
	@scripts/test-aarch64.sh

clean:
	chmod -R u+rwx run 2>/dev/null; rm -rf build build-* run
