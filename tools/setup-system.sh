#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
set -euo pipefail

need=()
command -v cmake >/dev/null || need+=(cmake)
command -v g++ >/dev/null || need+=(g++)
command -v make >/dev/null || need+=(make)
command -v python3 >/dev/null || need+=(python3)
python3 -c 'import venv, ensurepip' 2>/dev/null || need+=(python3-venv)
python3 - <<'PY' 2>/dev/null || need+=(python3-dev)
import os, sysconfig, sys
sys.exit(0 if os.path.exists(os.path.join(sysconfig.get_paths()["include"], "Python.h")) else 1)
PY
[ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev)
[ -f /usr/include/gmock/gmock.h ] || need+=(libgmock-dev)
[ -f /usr/include/benchmark/benchmark.h ] || need+=(libbenchmark-dev)
command -v clang-format >/dev/null || need+=(clang-format)
# make fuzz: clang and its libFuzzer runtime.
command -v clang++ >/dev/null || need+=(clang)
compgen -G "/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a" >/dev/null ||
  need+=(libclang-rt-dev)
# The distributed state (cpp/corvid/dist): OpenMPI's headers and its launcher.
[ -f /usr/lib/x86_64-linux-gnu/openmpi/include/mpi.h ] || need+=(libopenmpi-dev)
command -v mpirun >/dev/null || need+=(openmpi-bin)

if [ ${#need[@]} -eq 0 ]; then exit 0; fi
echo "installing system packages: ${need[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq "${need[@]}"
