# The two set-up commands (see README.md):
#   make run    build, then run the example upgrade pre-check in a fresh device sandbox
#   make test   build, then run every test (C++ and Lua) with ctest
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

.PHONY: all deps configure build run test install bench clean

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
	@cd $(BUILD) && ctest --output-on-failure -j$(JOBS)

install: build
	@cmake --install $(BUILD) --prefix $(PREFIX)

bench: deps
	@cmake -S . -B $(BUILD) -DQAV_LUA_VERSION=$(LUA) -DQAV_SANITIZE=$(SANITIZE) -DQAV_BUILD_BENCH=ON >/dev/null
	@cmake --build $(BUILD) -j$(JOBS) --target bench_build
	@bench/run_all.sh --build $(BUILD) $(if $(filter-out 0,$(QUICK)),--quick) $(if $(JSON),--json $(JSON))

clean:
	rm -rf $(BUILD)
