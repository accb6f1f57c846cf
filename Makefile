# make run    installs what is missing, builds, and shows this machine's forwarding state over gNMI
#             ARGS are handed to `pel up`: make run ARGS="--once", or a described router: ARGS="--scenario examples/ecmp.yaml"
# make test   the same, then runs all tests
#
# make scale  the tests labelled `scale`, which .ci/run runs at 100,000 entries, at SCALE of them
# make soak   the real processes under churn for two minutes, with slow clients and without (test/soak)
#             ARGS are handed to pel-soak: make soak ARGS="--seconds 30"
# make bench-report  measures the whole export and writes docs/performance.md (bench/README.md)
# make fuzz   runs each fuzz target for TIME seconds; TARGETS names some of them
#
# All work from any earlier state, as root or with sudo for what is to be installed. On a machine without
# apt: INSTALL=no, and see `tools/install --list`.
ARGS ?=
INSTALL ?= yes
SCALE ?= 1000000
TIME ?= 1200
TARGETS ?=

.PHONY: run build test scale soak fuzz install-run install-test clean bench-report

run: build
	exec build/release/bin/pel up $(ARGS)

build: install-run
	@$(call configure,release)
	@echo "building (build/release)"
	cmake --build --preset release --target PelOpenConfigAgent pel pel-agentd pel-forwarderd ManualPages

test: install-test
	@$(call configure,dev)
	@echo "building (build/dev)"
	cmake --build --preset dev
	rm -rf build/dev/results
	ctest --preset dev

bench-report: install-test
	bench/report $(ARGS)

scale: install-test
	@$(call configure,release)
	cmake --build --preset release --target scale-tests
	PEL_SCALE=$(SCALE) ctest --preset scale

fuzz:
	INSTALL=$(INSTALL) TIME=$(TIME) tools/fuzz $(TARGETS)

soak: install-run
	@$(call configure,release)
	@echo "building (build/release)"
	cmake --build --preset release --target pel-soak
	build/release/bin/pel-soak --json build/release/soak.json $(ARGS)

install-run:
ifeq ($(INSTALL),yes)
	@tools/install run build
endif

install-test:
ifeq ($(INSTALL),yes)
	@tools/install run build test
endif

# A directory that another compiler, path or half-finished run left is of no use: configured afresh.
define configure
echo "configuring (build/$(1))"; \
cmake --preset $(1) >build-$(1).log 2>&1 || { \
  echo "configuring afresh (build/$(1))"; rm -rf build/$(1); \
  cmake --preset $(1) >build-$(1).log 2>&1; } || { tail -n 40 build-$(1).log; exit 1; }; \
rm -f build-$(1).log
endef

clean:
	rm -rf build
