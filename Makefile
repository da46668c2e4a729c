# The two set-up commands (see README.md):
#   make run    build, then run the example upgrade pre-check in a fresh device sandbox
#   make test   build, then run the tests (C++ and Lua) with ctest, in well under 30 s
#   make test-long  build, then run the long ones: the call-anything sweep over every function
#                and argument count, and the stress runs (CI runs both)
#   make install PREFIX=<dir>   build, then install the library, the host platform, qavlua, qavpkg,
#                the headers, the language-server definitions and the reference (default /usr/local)
#   make bench  build what the benchmarks need, run every benchmark of bench/ and print one table
#                (QUICK=1: about a minute at small scales; JSON=FILE: the rows as JSON too)
# Options: LUA=5.2|5.3|5.4 (default 5.4), BUILD=<dir> (default build), SANITIZE=address,undefined,
# BENCH=OFF (skip building the benchmarks)
MAKEFLAGS += --no-print-directory
LUA ?= 5.4
BUILD ?= build
SANITIZE ?=
BENCH ?= ON
JOBS ?= $(shell nproc)
SANDBOX ?= $(BUILD)/sandbox
PREFIX ?= /usr/local

# The call-anything sweep and the stress runs take a minute or more; CI runs them as a stage.
LONG_TESTS := ^(fuzz/sweep|stress/)

.PHONY: all deps configure build run test test-long install bench clean

all: build

deps:
	@tools/install-deps.sh $(LUA)

configure: deps
	@cmake -S . -B $(BUILD) -DQAV_LUA_VERSION=$(LUA) -DQAV_SANITIZE=$(SANITIZE) -DQAV_BUILD_BENCH=$(BENCH) >/dev/null

build: configure
	@cmake --build $(BUILD) -j$(JOBS)

run: build
	@rm -rf $(SANDBOX)
	@$(BUILD)/bin/qavlua init $(SANDBOX)
	@$(BUILD)/bin/qavlua --root $(SANDBOX) examples/main.lua
	@echo "device root: $(SANDBOX) (the script sees it as /); logs: $(SANDBOX)/log/"
	@ls $(SANDBOX)/log/
	@echo "sweep a script: $(BUILD)/bin/qavlua sweep power-cut --root $(SANDBOX) examples/upgrade_flow.lua --recover examples/upgrade_flow_recover.lua (docs/sweeps.md)"

test: build
	@cd $(BUILD) && ctest --output-on-failure -j$(JOBS) -E '$(LONG_TESTS)'

test-long: build
	@cd $(BUILD) && ctest --output-on-failure -j$(JOBS) -R '$(LONG_TESTS)'

install: build
	@cmake --install $(BUILD) --prefix $(PREFIX)

bench: deps
	@cmake -S . -B $(BUILD) -DQAV_LUA_VERSION=$(LUA) -DQAV_SANITIZE=$(SANITIZE) -DQAV_BUILD_BENCH=ON >/dev/null
	@cmake --build $(BUILD) -j$(JOBS) --target bench_build
	@bench/run_all.sh --build $(BUILD) $(if $(filter-out 0,$(QUICK)),--quick) $(if $(JSON),--json $(JSON))

clean:
	rm -rf $(BUILD)
