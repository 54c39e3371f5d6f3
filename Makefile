# corvid: set-up, build, tests, demo and benchmarks.
# `make test` and `make demo` do every step from a bare Debian 12 machine.

PYTHON_SYSTEM ?= python3
VENV          := .venv
PY            := $(VENV)/bin/python
BUILD         ?= build/dev
JOBS          ?= $(shell nproc)
DEV_PATH      := PYTHONPATH=$(CURDIR)/python:$(CURDIR)/$(BUILD)/python
PY_PACKAGES   := numpy scipy sympy pybind11 scikit-build-core pytest hypothesis matplotlib threadpoolctl networkx dimod ruff qiskit pandas sphinx build

.PHONY: all system venv build test test-cpp test-python demo bench bench-peers bench-mpi install \
        wheel clean sanitize fuzz lint docs

all: build

system:
	@bash tools/setup-system.sh

$(VENV)/.ready: pyproject.toml | system
	$(PYTHON_SYSTEM) -m venv $(VENV)
	$(PY) -m pip install -q --upgrade pip
	$(PY) -m pip install -q $(PY_PACKAGES)
	touch $@

venv: $(VENV)/.ready

$(BUILD)/CMakeCache.txt: $(VENV)/.ready CMakeLists.txt
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release \
	  -DPython_EXECUTABLE=$(CURDIR)/$(PY) \
	  -Dpybind11_DIR=$$($(PY) -m pybind11 --cmakedir) $(CMAKE_ARGS)

build: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

test-cpp: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

test-python: build
	$(DEV_PATH) $(PY) -m pytest -q tests

test: test-cpp test-python

# The API reference (from the docstrings) and the tutorials, as HTML in build/docs. Warnings
# are errors; -E rereads every docstring, since Sphinx does not see the extension change.
docs: build
	$(DEV_PATH) $(PY) -m sphinx -E -W --keep-going -q -b html docs build/docs

demo: build
	$(DEV_PATH) $(PY) -m corvid_alg.QAOA --maxcut examples/maxcut14.txt --layers 3 --interp --seed 7

bench: build
	$(DEV_PATH) $(PY) bench/run_all.py

# Optional peer comparison: installs the peer into the venv only (not a package requirement) and
# builds its C simulator, which its PyPI release leaves unbuilt; the evaluation table then times it.
bench-peers: build
	$(PY) -m pip install -q qokit
	bash bench/build_peer_simulator.sh $(PY)
	$(DEV_PATH) $(PY) bench/evaluation.py

# The distributed state over 1, 2 and 4 ranks of this machine, n = BENCH_MPI_QUBITS with the X
# mixer and BENCH_MPI_XY with the XY ring mixer, p = BENCH_MPI_LAYERS, the cores shared out
# between the ranks (one rank per core at most; the state's memory guard refuses an n that does
# not fit); then n = BENCH_MPI_EVALUATION through QaoaEvaluation (the path Python takes) on
# BENCH_MPI_EVALUATION_RANKS ranks. One README table row per run.
BENCH_MPI_QUBITS ?= 24 25 26 27 28
BENCH_MPI_XY     ?= 24 26
BENCH_MPI_RANKS  ?= 1 2 4
BENCH_MPI_LAYERS ?= 1 4
BENCH_MPI_EVALUATION ?= 26 27 28
BENCH_MPI_EVALUATION_RANKS ?= 4
NPROC            := $(shell nproc)
MPI_ENV           = OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1 \
                    OMPI_MCA_rmaps_base_oversubscribe=1

bench-mpi: build
	@echo "| n | ranks | mixer | p | ms / eval | MiB sent / layer / rank | minimum MiB | sent / minimum | slice MiB | peak MiB | peak / slice | loss |"
	@echo "|--:|--:|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|"
	@for run in $(foreach n,$(BENCH_MPI_QUBITS),$(n):x:state) $(foreach n,$(BENCH_MPI_XY),$(n):xy-ring:state) \
	            $(foreach n,$(BENCH_MPI_EVALUATION),$(n):x:evaluation); do \
	  n=$${run%%:*}; mixer=$${run#*:}; path=$${mixer#*:}; mixer=$${mixer%:*}; \
	  ranks="$(BENCH_MPI_RANKS)"; [ $$path = evaluation ] && ranks="$(BENCH_MPI_EVALUATION_RANKS)"; \
	  for p in $(BENCH_MPI_LAYERS); do for r in $$ranks; do \
	    OMP_NUM_THREADS=$$(( $(NPROC) / r > 0 ? $(NPROC) / r : 1 )) $(MPI_ENV) \
	    mpirun --bind-to none -n $$r $(BUILD)/dist_evaluation_time $$n $$p 2 $$mixer $$path \
	      || exit 1; \
	  done; done; \
	done

install: venv
	$(PY) -m pip install --no-build-isolation .

# A wheel in dist/, installed into a fresh virtual environment and smoke-tested from a folder
# that holds no Python (not the source tree, not a shared /tmp): the package, its version and
# the command line on a bundled example.
wheel: venv
	rm -rf dist build/wheel-venv
	CMAKE_BUILD_PARALLEL_LEVEL=$(JOBS) $(PY) -m build --wheel --no-isolation --outdir dist .
	$(PYTHON_SYSTEM) -m venv build/wheel-venv
	build/wheel-venv/bin/pip install -q dist/corvid-*.whl
	cd build/wheel-venv && $(CURDIR)/build/wheel-venv/bin/python -c \
	  "import corvid, corvid_alg.QAOA; print('corvid', corvid.__version__)"
	cd build/wheel-venv && $(CURDIR)/build/wheel-venv/bin/corvid-qaoa --gset $(CURDIR)/examples/cube.gset \
	  --layers 1 --seed 1 --quiet

# Style: clang-format (.clang-format) over the C++ sources, reporting every file it would change;
# ruff (pyproject.toml) over the Python.
CXX_SOURCES    = $(shell git ls-files 'cpp/*.cc' 'cpp/*.h' 'bindings/*.cc' 'bindings/*.h' 'fuzz/*.cc' 'fuzz/*.h')

lint: venv
	clang-format --dry-run -Werror $(CXX_SOURCES)
	$(VENV)/bin/ruff check python tests bench fuzz docs

# The C++ core and its tests under AddressSanitizer and UndefinedBehaviorSanitizer (no Python).
ASAN_BUILD    := build/asan
SANITIZE      := -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer

sanitize: system
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g" \
	  -DCORVID_BUILD_PYTHON=OFF -DCORVID_BUILD_EXAMPLES=OFF \
	  -DCMAKE_CXX_FLAGS="$(SANITIZE)" -DCMAKE_EXE_LINKER_FLAGS="$(SANITIZE)"
	cmake --build $(ASAN_BUILD) -j $(JOBS) --target corvid_tests
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  $(ASAN_BUILD)/corvid_tests --gtest_brief=1

# FUZZ_SECONDS in all, a third each: libFuzzer on Pauli keys and the operator algebra, libFuzzer
# on the OpenQASM reader and writer (new inputs they find go to build/fuzz/corpus-*, the
# committed seeds in fuzz/corpus/ are only read), then a mutation fuzzer of the command line's
# formula, JSON and edge-list readers (fuzz/readers_fuzz.py).
FUZZ_SECONDS  ?= 60
FUZZ_PART     = $(shell expr $(FUZZ_SECONDS) / 3)
FUZZ_BUILD    := build/fuzz
PAULI_SOURCES := $(filter-out %.test.cc %.perf.cc,$(wildcard cpp/corvid/pauli/*.cc))

$(FUZZ_BUILD)/pauli_fuzz: fuzz/pauli_fuzz.cc $(PAULI_SOURCES) $(wildcard cpp/corvid/pauli/*.h) | system
	@mkdir -p $(FUZZ_BUILD)
	clang++ -std=c++20 -O1 -g -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined \
	  -Icpp fuzz/pauli_fuzz.cc $(PAULI_SOURCES) -o $@

QASM_SOURCES  := $(filter-out %.test.cc,$(wildcard cpp/corvid/circuit/*.cc)) cpp/corvid/util/memory.cc

$(FUZZ_BUILD)/qasm_fuzz: fuzz/qasm_fuzz.cc $(QASM_SOURCES) $(wildcard cpp/corvid/circuit/*.h) | system
	@mkdir -p $(FUZZ_BUILD)
	clang++ -std=c++20 -O1 -g -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined \
	  -Icpp fuzz/qasm_fuzz.cc $(QASM_SOURCES) -o $@

fuzz: $(FUZZ_BUILD)/pauli_fuzz $(FUZZ_BUILD)/qasm_fuzz build
	@mkdir -p $(FUZZ_BUILD)/corpus-pauli $(FUZZ_BUILD)/corpus-qasm
	$(FUZZ_BUILD)/pauli_fuzz -max_total_time=$(FUZZ_PART) -dict=fuzz/pauli.dict \
	  -print_final_stats=1 $(FUZZ_BUILD)/corpus-pauli fuzz/corpus/pauli
	$(FUZZ_BUILD)/qasm_fuzz -max_total_time=$(FUZZ_PART) -max_len=4096 -print_final_stats=1 \
	  $(FUZZ_BUILD)/corpus-qasm fuzz/corpus/qasm
	$(DEV_PATH) $(PY) fuzz/readers_fuzz.py $(FUZZ_PART)

clean:
	rm -rf build
