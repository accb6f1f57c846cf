# make run    installs what is missing, builds, and shows this machine's forwarding state over gNMI
#             ARGS are handed to `pel up`: make run ARGS="--once"
# make test   the same, then runs all tests
#
# Both work from any earlier state, as root or with sudo for what is to be installed. On a machine without
# apt: INSTALL=no, and see `tools/install --list`.
ARGS ?=
INSTALL ?= yes

.PHONY: run build test install-run install-test clean

run: build
	exec build/release/bin/pel up $(ARGS)

build: install-run
	@$(call configure,release)
	@echo "building (build/release)"
	cmake --build --preset release --target PelOpenConfigAgent pel pel-agentd pel-forwarderd

test: install-test
	@$(call configure,dev)
	@echo "building (build/dev)"
	cmake --build --preset dev
	rm -rf build/dev/results
	ctest --preset dev

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
