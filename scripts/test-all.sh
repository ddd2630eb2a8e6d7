#!/usr/bin/env bash
# Installs what Kestrow needs, builds it with warnings as errors, and runs every test: once with
# g++, once with clang under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh

jobs=$(nproc)
export CTEST_OUTPUT_ON_FAILURE=1
# Tests start their own private buses where they need one; the outer session keeps anything
# that still reaches for "the" session bus away from the real desktop.
run_tests() { dbus-run-session -- ctest --test-dir "$1" -j "$jobs" --timeout 300; }

echo "== g++ build, warnings as errors"
cmake -S . -B build/gcc -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKESTROW_WERROR=ON \
    -DCMAKE_CXX_COMPILER=g++
cmake --build build/gcc -j "$jobs"
run_tests build/gcc

echo "== clang build with AddressSanitizer and UndefinedBehaviorSanitizer"
cmake -S . -B build/sanitize -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKESTROW_WERROR=ON -DKESTROW_SANITIZE=ON \
    -DCMAKE_CXX_COMPILER=clang++
cmake --build build/sanitize -j "$jobs"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export LSAN_OPTIONS=suppressions=$PWD/tests/sanitizer/lsan.supp:print_suppressions=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
run_tests build/sanitize
echo "== all tests passed"
