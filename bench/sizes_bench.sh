#!/usr/bin/env bash
# The folder-size benchmark: `kestrow sizes` (release build) against du, gdu and the plain
# Python reference walk on the generated `meta` tree (30,000 folders, 300,000 files), with the
# shared bench scripts: first a check of every tool's folder totals against the reference, then
# timings with a warm page cache and (when caches can be dropped, i.e. as root) a cold one.
#
#   bench/sizes_bench.sh            build, generate the tree if missing, check, bench
#
# Environment (all optional):
#   BENCH=../shared/bench             where make_tree.py, sizes.sh and check_sizes.py live
#                                     (beside the checkout; else /work/shared/bench)
#   BENCH_TREES=/tmp/benchtrees       where the tree is generated (once; reused after that)
#   KESTROW_BIN                       the binary to time; unset: a Release build made in BUILD
#   BUILD=build/release               the release build folder (configured if missing)
#   TOOLS="du gdu pyref kestrow"      RUNS=5  MIN_SIZE=10000000  COLD=auto|0|1
#   RESULTS=/tmp/kestrow-bench/sizes-DATE   the results folder (summary.md holds the table)
set -euo pipefail

HERE="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
ROOT="$(cd "$HERE/.." && pwd)"
BENCH="${BENCH:-$(cd "$ROOT/../shared/bench" 2>/dev/null && pwd || echo /work/shared/bench)}"
BENCH_TREES="${BENCH_TREES:-/tmp/benchtrees}"
BUILD="${BUILD:-$ROOT/build/release}"
TREE="$BENCH_TREES/meta"
export TOOLS="${TOOLS:-du gdu pyref kestrow}"
export RESULTS="${RESULTS:-${TMPDIR:-/tmp}/kestrow-bench/sizes-$(date +%Y%m%d-%H%M%S)}"

say() { echo "sizes_bench: $*" >&2; }

for script in make_tree.py sizes.sh check_sizes.py; do
    [ -f "$BENCH/$script" ] || { say "$BENCH/$script is missing"; exit 2; }
done

# The peers and the timer, from the distribution when we may install.
missing=""
for tool in gdu hyperfine; do command -v "$tool" >/dev/null || missing="$missing $tool"; done
[ -x /usr/bin/time ] || missing="$missing time"
if [ -n "$missing" ]; then
    if [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null; then
        say "installing$missing"
        DEBIAN_FRONTEND=noninteractive apt-get install -y $missing >/dev/null
    else
        say "missing$missing (apt-get install$missing); tools that are missing are skipped"
    fi
fi

if [ -z "${KESTROW_BIN:-}" ]; then
    if [ ! -f "$BUILD/CMakeCache.txt" ]; then
        cmake -S "$ROOT" -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKESTROW_BUILD_TESTS=OFF
    fi
    cmake --build "$BUILD" --target kestrow
    KESTROW_BIN="$BUILD/src/kestrow"
fi
export KESTROW_BIN

if [ ! -d "$TREE" ]; then
    say "generating $TREE (a minute or so)"
    python3 "$BENCH/make_tree.py" meta "$TREE" --quiet
fi

mkdir -p "$RESULTS"
status=0
"$BENCH/sizes.sh" check "$TREE" $TOOLS || { say "a tool's totals differ from the reference"; status=1; }
"$BENCH/sizes.sh" bench "$TREE" $TOOLS
say "table in $RESULTS/summary.md"
exit $status
