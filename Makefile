# Everything that a developer runs. `make` alone lists the targets.

PYTHON ?= /usr/bin/python3
MESON = $(PYTHON) /usr/bin/meson
PYTEST = $(PYTHON) -m pytest -q
MPS ?=

# All that is needed beyond Debian's base, a C++ compiler and make.
PACKAGES = python3 python3-dev meson python3-mesonpy ninja-build python3-pip \
	python3-numpy python3-scipy python3-swiglpk \
	python3-pytest python3-pytest-xdist python3-hypothesis

.DEFAULT_GOAL = help
.PHONY: help packages build checked demo test bench table describe reference clean

help:  ## list the targets
	@sed -n 's/^\([a-z-]*\):.*## /\1\t/p' $(MAKEFILE_LIST) | expand -t 12

packages:  ## install what is missing from Debian's packages
	@missing=$$(for p in $(PACKAGES); do dpkg-query -W -f '$${Status}' $$p 2>/dev/null | grep -q 'ok installed' || echo $$p; done); \
	if [ -n "$$missing" ]; then \
	  sudo=$$([ $$(id -u) = 0 ] || echo sudo); \
	  $$sudo apt-get update -q && DEBIAN_FRONTEND=noninteractive $$sudo apt-get install -q -y --no-install-recommends $$missing; \
	fi

build: packages  ## the module, in build/normal
	@test -f build/normal/build.ninja || $(MESON) setup build/normal
	@ninja -C build/normal --quiet
	@ln -sf build/normal/compile_commands.json compile_commands.json

checked: packages  ## the module with bounds checking, in build/checked
	@test -f build/checked/build.ninja || $(MESON) setup build/checked -Dchecked=true
	@ninja -C build/checked --quiet

demo: build  ## solve the transport problem, and MPS=FILE if given
	PYTHONPATH=build/normal $(PYTHON) examples/solve_mps.py examples/transport.mps $(MPS)

test: build checked  ## all tests on the normal and the checked build
	PYTHONPATH=build/normal $(PYTEST) tests
	PYTHONPATH=build/checked $(PYTEST) tests

bench: build  ## time kernels against hand-written loops
	@ninja -C build/normal --quiet libhand_written.so
	PYTHONPATH=build/normal $(PYTHON) bench/run.py

table:  ## print the table of kernels: number, body, format, parameters, result
	@$(PYTHON) tools/kernels.py table

describe:  ## print what a kernel does: make describe N=472
	@$(PYTHON) tools/kernels.py describe $(N)

reference:  ## write the kernel reference, build/kernels.md
	@mkdir -p build
	$(PYTHON) tools/kernels.py reference > build/kernels.md

clean:  ## remove all that is built
	rm -rf build compile_commands.json
