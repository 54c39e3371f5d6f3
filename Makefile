# corvid: set-up, build, tests, demo and benchmarks.
# `make test` and `make demo` do every step from a bare Debian 12 machine.

PYTHON_SYSTEM ?= python3
VENV          := .venv
PY            := $(VENV)/bin/python
BUILD         ?= build/dev
JOBS          ?= $(shell nproc)
DEV_PATH      := PYTHONPATH=$(CURDIR)/python:$(CURDIR)/$(BUILD)/python
PY_PACKAGES   := numpy scipy sympy pybind11 scikit-build-core pytest hypothesis matplotlib

.PHONY: all system venv build test test-cpp test-python demo bench bench-peers install clean

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

demo: build
	$(DEV_PATH) $(PY) -m corvid_alg.QAOA --maxcut examples/maxcut14.txt --layers 3 --interp --seed 7

bench: build
	$(DEV_PATH) $(PY) bench/run_all.py

# Optional peer comparison: installs the peer into the venv only (not a package requirement).
bench-peers: build
	$(PY) -m pip install -q qokit
	$(DEV_PATH) $(PY) bench/peers.py

install: venv
	$(PY) -m pip install --no-build-isolation .

clean:
	rm -rf build
