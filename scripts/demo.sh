#!/usr/bin/env bash
# Installs what Kestrow needs, builds it, and runs the agent on its built-in demo data.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DKESTROW_BUILD_TESTS=OFF
cmake --build build/release --target kestrow
exec build/release/src/kestrow --demo "$@"
