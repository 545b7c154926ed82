#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite: once in Debug, once under ASan and UBSan.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
jobs=$(nproc)
run() {
    local dir=$1; shift
    cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
    cmake --build "$dir" -j "$jobs"
    ctest --test-dir "$dir" --output-on-failure -j "$jobs"
}
run build/test -DCMAKE_BUILD_TYPE=Debug
if [ "${ZELK_SKIP_SANITIZERS:-0}" != 1 ]; then
    run build/sanitize -DCMAKE_BUILD_TYPE=Debug -DZELK_SANITIZE=ON -DZELK_BENCH=OFF
fi
