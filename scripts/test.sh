#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite, under AddressSanitizer and UndefinedBehaviorSanitizer
# (one build, so the suite runs once and CI stays short). ZELK_SKIP_SANITIZERS=1 runs a plain Debug
# build instead, for a quicker local loop. The benchmarks are built too, so they can't rot. First the
# fuzz targets run for a bounded time each (scripts/fuzz.sh; ZELK_SKIP_FUZZ=1 leaves them out), so the
# suite's summary is the last thing the command prints.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
jobs=$(nproc)
if [ "${ZELK_SKIP_FUZZ:-0}" != 1 ]; then
    bash scripts/fuzz.sh
fi
run() {
    local dir=$1; shift
    cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
    cmake --build "$dir" -j "$jobs"
    ctest --test-dir "$dir" --output-on-failure -j "$jobs"
}
if [ "${ZELK_SKIP_SANITIZERS:-0}" = 1 ]; then
    run build/test -DCMAKE_BUILD_TYPE=Debug
else
    run build/sanitize -DCMAKE_BUILD_TYPE=Debug -DZELK_SANITIZE=ON -DZELK_BENCH=ON
fi
