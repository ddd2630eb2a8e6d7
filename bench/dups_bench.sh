#!/usr/bin/env bash
# The duplicate finder against its peers on the shared bench's `medium` tree: first whether every
# tool finds exactly the manifest's groups, then warm and cold timings and peak memory. Not run by
# CI: it needs root (to drop the page cache), the peers from Debian and a quiet machine.
#
#   bench/dups_bench.sh [PRESET]        PRESET defaults to medium
#
# Environment: BENCH (default ../shared/bench beside the checkout), BENCH_TREES (/tmp/benchtrees),
# RUNS (5), TOOLS ("rmlint jdupes fdupes pyref kestrow"), KESTROW_BIN (a Release build made here
# in build/release when unset), RESULTS (where the tables go).
set -euo pipefail

HERE="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
ROOT="$(cd "$HERE/.." && pwd)"
PRESET="${1:-medium}"
BENCH="${BENCH:-$(cd "$ROOT/../shared/bench" 2>/dev/null && pwd || echo /work/shared/bench)}"
BENCH_TREES="${BENCH_TREES:-/tmp/benchtrees}"
TREE="$BENCH_TREES/$PRESET"
export TOOLS="${TOOLS:-rmlint jdupes fdupes pyref kestrow}"
export RUNS="${RUNS:-5}"

[ -x "$BENCH/dups.sh" ] || { echo "dups_bench.sh: no bench scripts in $BENCH" >&2; exit 2; }

missing=()
for tool in rmlint jdupes fdupes hyperfine; do command -v "$tool" >/dev/null || missing+=("$tool"); done
[ -x /usr/bin/time ] || missing+=(time)
if [ "${#missing[@]}" -gt 0 ]; then
    apt-get update -qq && apt-get install -y -qq "${missing[@]}"
fi

if [ -z "${KESTROW_BIN:-}" ]; then
    # -O3 makes GCC 12 see false string-overlap warnings in code that is clean at -O2, so the
    # benchmark build does not treat warnings as errors.
    if [ ! -f "$ROOT/build/release/CMakeCache.txt" ]; then
        cmake -S "$ROOT" -B "$ROOT/build/release" -G Ninja -DCMAKE_BUILD_TYPE=Release \
            -DKESTROW_BUILD_TESTS=OFF -DKESTROW_WERROR=OFF
    fi
    cmake --build "$ROOT/build/release" -j"$(nproc)" --target kestrow
    KESTROW_BIN="$ROOT/build/release/src/kestrow"
fi
export KESTROW_BIN
export KESTROW_DUPS_ARGS="duplicates"
export KESTROW_DUPS_FORMAT=fdupes

if [ ! -d "$TREE" ]; then
    python3 "$BENCH/make_tree.py" "$PRESET" "$TREE" --quiet
fi

export RESULTS="${RESULTS:-$PWD/results-dups-$PRESET-$(date +%Y%m%d-%H%M%S)}"
# A peer's mismatch (jdupes lists every hard link of a file) is not ours to fail on.
check="$("$BENCH/dups.sh" check "$TREE" || true)"
echo "$check"
echo "$check" | grep -Eq '^kestrow +True ' || { echo "dups_bench.sh: kestrow's groups are wrong" >&2; exit 1; }
"$BENCH/dups.sh" bench "$TREE"
echo "tables in $RESULTS/summary.md" >&2
