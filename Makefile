# Everything that a developer runs. `make` alone lists the targets.

PYTHON ?= /usr/bin/python3
MESON = $(PYTHON) /usr/bin/meson
PYTEST = $(PYTHON) -m pytest -q -n $$(nproc)
MPS ?=
SCENARIOS ?=
NONZEROS ?= 100000000
# Options of meson for builds that are set up: SETUP=--werror
SETUP ?=
# Of the tools in trust/: how many calls, the seed by which they are drawn, and the number of the only one to make.
CALLS ?=
SEED ?= 0
ONLY ?=
TRIALS = --seed $(SEED) $(addprefix --calls ,$(CALLS)) $(addprefix --only ,$(ONLY))

# Debian's packages, beyond the base system, a C++ compiler and make: what each group of targets needs and no more.
PACKAGES_build = python3 python3-dev meson ninja-build
PACKAGES_models = $(PACKAGES_build) python3-numpy python3-scipy
PACKAGES_plots = $(PACKAGES_models) python3-matplotlib
PACKAGES_demo = $(PACKAGES_plots) python3-cvxopt
PACKAGES_scenarios = $(PACKAGES_models) python3-distributed python3-h5py
PACKAGES_scale = $(PACKAGES_scenarios) $(PACKAGES_plots)
PACKAGES_test = $(PACKAGES_demo) $(PACKAGES_scenarios) mypy python3-pytest python3-pytest-xdist
PACKAGES_refleak = $(PACKAGES_test) python3-dbg
PACKAGES_clang = $(PACKAGES_test) clang clang-format clang-tidy
PACKAGES_install = $(PACKAGES_build) git mypy python3-mesonpy python3-numpy python3-pip python3-venv
PACKAGES_docs = $(PACKAGES_models) python3-sphinx furo python3-myst-parser
PACKAGES_docs_test = $(PACKAGES_docs) chromium chromium-driver python3-selenium

.DEFAULT_GOAL = help
.PHONY: help build checked demo models memory scenarios scale test clang sanitize calls fuzz mutations soak refleak tidy \
	install-check pythons loops bench bench-plot table describe find reference docs docs-test clean

help:  ## list the targets
	@sed -n 's/^\([a-z-]*\):.*## /\1\t/p' $(MAKEFILE_LIST) | expand -t 16

needs-%:
	@missing=$$(for p in $(sort $(PACKAGES_$*)); do dpkg-query -W -f '$${Status}' $$p 2>/dev/null | grep -q 'ok installed' || echo $$p; done); \
	if [ -n "$$missing" ]; then \
	  sudo=$$([ $$(id -u) = 0 ] || echo sudo); \
	  $$sudo apt-get update -q && DEBIAN_FRONTEND=noninteractive $$sudo apt-get install -q -y --no-install-recommends $$missing; \
	fi

build: needs-build  ## the module, in build/normal
	@test -f build/normal/build.ninja || $(MESON) setup build/normal $(SETUP)
	@ninja -C build/normal
	@ln -sf build/normal/compile_commands.json compile_commands.json

checked: needs-build  ## the module with bounds checking, in build/checked
	@test -f build/checked/build.ninja || $(MESON) setup build/checked -Dchecked=true $(SETUP)
	@ninja -C build/checked

demo: needs-demo build  ## solve a linear program (and MPS=FILE), an efficient frontier, theta numbers, a nearest point
	PYTHONPATH=build/normal $(PYTHON) examples/solve_mps.py examples/transport.mps $(MPS)
	PYTHONPATH=build/normal $(PYTHON) examples/efficient_frontier.py
	PYTHONPATH=build/normal $(PYTHON) examples/theta.py
	PYTHONPATH=build/normal $(PYTHON) examples/nearest_point.py

models: needs-models build  ## build matrices of whole models through the kernels and with SciPy, and compare their times
	PYTHONPATH=build/normal $(PYTHON) examples/build_models.py

scenarios: needs-scenarios build  ## solve a two-stage program on a local cluster (options of the script: SCENARIOS="--scenarios 10000")
	PYTHONPATH=build/normal $(PYTHON) examples/scenarios.py $(SCENARIOS)

scale: needs-scale build  ## times and memory of models up to NONZEROS=100000000, at most ten minutes: table, build/scale.svg
	@PYTHONPATH=build/normal $(PYTHON) bench/scale.py --nonzeros $(NONZEROS) --plot build/scale.svg

memory: needs-models build  ## build a linear program of 10^7 nonzeros and hold its memory against that of the matrix
	PYTHONPATH=build/normal $(PYTHON) examples/memory.py

test: needs-test build checked loops  ## all tests, first with bounds checking, which names what would crash the normal build
	PYTHONPATH=build/checked $(PYTEST) tests
	PYTHONPATH=build/normal $(PYTEST) tests

build/clang/build.ninja:
	@CXX=clang++ $(MESON) setup build/clang $(SETUP)

clang: needs-clang build/clang/build.ninja  ## all tests on a build by clang
	@ninja -C build/clang --quiet
	PYTHONPATH=build/clang $(PYTEST) tests

sanitize: needs-test  ## all tests under the address and undefined-behaviour sanitizers
	@test -f build/sanitize/build.ninja || \
	  CXX=g++ $(MESON) setup build/sanitize -Db_sanitize=address,undefined -Ddebug=true -Doptimization=0
	@ninja -C build/sanitize --quiet
	LD_PRELOAD="$$(g++ -print-file-name=libasan.so) $$(g++ -print-file-name=libubsan.so)" \
	  ASAN_OPTIONS=detect_leaks=0 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
	  PYTHONPATH=build/sanitize $(PYTEST) tests

calls: needs-test checked  ## record the legal calls that the next four play back, if kernels or tests have changed
	@if [ ! -f build/calls.pkl ] || \
	  [ "$$(find build/checked/fragments*.so tests/*.py trust/record.py trust/calls.py -newer build/calls.pkl)" ]; then \
	  PYTHONPATH=build/checked $(PYTHON) trust/record.py; fi

fuzz: build calls  ## faulty and legal calls of all kernels, each answered as it has to be: make fuzz CALLS=1000000 SEED=7
	PYTHONPATH=build/normal $(PYTHON) trust/fuzz.py $(TRIALS)

mutations: calls  ## legal calls with one change, on the build with bounds checking, under the sanitizers: CALLS=, SEED=
	@test -f build/checked-sanitize/build.ninja || CXX=g++ $(MESON) setup build/checked-sanitize \
	  -Dchecked=true -Db_sanitize=address,undefined -Ddebug=true -Doptimization=0
	@ninja -C build/checked-sanitize --quiet
	LD_PRELOAD="$$(g++ -print-file-name=libasan.so) $$(g++ -print-file-name=libubsan.so)" PYTHONMALLOC=malloc \
	  ASAN_OPTIONS=detect_leaks=0:allocator_may_return_null=1:max_allocation_size_mb=2000 \
	  UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
	  PYTHONPATH=build/checked-sanitize $(PYTHON) trust/mutate.py $(TRIALS)

soak: build calls  ## 10 million mixed calls, during which the memory may not grow: CALLS=, SEED=
	PYTHONPATH=build/normal $(PYTHON) trust/soak.py $(TRIALS)

refleak: needs-refleak calls  ## count all references of a debug interpreter over rounds of all kernels: CALLS=, SEED=
	@test -f build/refleak/build.ninja || $(PYTHON)-dbg /usr/bin/meson setup build/refleak -Doptimization=1
	@ninja -C build/refleak --quiet
	PYTHONPATH=build/refleak $(PYTHON)-dbg trust/refleak.py $(TRIALS)

tidy: needs-clang build/clang/build.ninja  ## clang-format and clang-tidy over the sources
	@git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run -Werror
	@ninja -C build/clang --quiet build.ninja
	@run-clang-tidy -quiet -p build/clang '/src/.*\.cpp$$' 2>/dev/null

install-check: needs-install  ## sdist, wheel and pip install in a throw-away environment
	tools/check_install.sh

pythons: needs-build  ## build for every other CPython at hand and call kernels there
	tools/check_pythons.sh

loops: needs-models build
	@ninja -C build/normal --quiet libhand_written.so

bench: loops  ## hold kernels against hand-written loops and NumPy or SciPy: a table, and build/bench.json
	@PYTHONPATH=build/normal $(PYTHON) bench/run.py --json build/bench.json

bench-plot: needs-plots loops  ## the same for six families over the number of terms: a picture, build/bench.svg
	@PYTHONPATH=build/normal $(PYTHON) bench/run.py --plot build/bench.svg

table:  ## print the table of kernels: number, body, format, parameters, result
	@$(PYTHON) tools/kernels.py table

describe:  ## print what a kernel does: make describe N=472
	@$(PYTHON) tools/kernels.py describe $(N)

find:  ## list the kernels that a word may mean: make find WORD=transpose, WORD='sum along'
	@$(PYTHON) tools/kernels.py find $(WORD)

reference:  ## write the kernel reference, build/kernels.md
	@mkdir -p build
	$(PYTHON) tools/kernels.py reference > build/kernels.md

docs: needs-docs build  ## the documentation site, build/docs/index.html: no warning, no broken link
	PYTHONPATH=build/normal $(PYTHON) docs/build.py

docs-test: needs-docs_test docs  ## look at the site in a headless browser: search, console, pictures, narrow window, dark theme
	$(PYTHON) docs/check_site.py

clean:  ## remove all that is built
	rm -rf build compile_commands.json
