#!/usr/bin/env bash
# Sets up, builds and starts the agent on the embedded simulated desktop.
# Arguments are passed to zelkd (default: the guided demo, then the agent keeps running).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DZELK_BENCH=OFF >/dev/null
cmake --build build/release -j "$(nproc)" --target zelkd zelk
if [ $# -eq 0 ]; then
    build/release/app/zelkd --demo
    echo
fi
exec build/release/app/zelkd "$@"
