#!/usr/bin/env bash
# Builds QOKit's C simulator inside its installed package, where the package looks for it.
# Its PyPI release ships the C sources without their headers or build script, so it falls back
# to a Python simulator. Each source defines its functions before the next one calls them, so
# the three compile as one translation unit; the headers they include are left empty.
# The peer gets the strongest flags this machine allows (-O3 -march=native, OpenMP).
set -euo pipefail
python=${1:-.venv/bin/python}
csim=$("$python" -c 'import pathlib, qokit; print(pathlib.Path(qokit.__file__).parent / "fur/c/csim")')
[ -f "$csim/libcsim.so" ] && exit 0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
touch "$work/diagonal.h" "$work/fur.h" "$work/qaoa_fur.h"
cat "$csim/src/diagonal.c" "$csim/src/fur.c" "$csim/src/qaoa_fur.c" > "$work/csim.c"
gcc -O3 -march=native -fopenmp -fPIC -shared -I"$work" -w "$work/csim.c" -o "$work/libcsim.so" -lm
mv "$work/libcsim.so" "$csim/libcsim.so"
echo "built $csim/libcsim.so"
