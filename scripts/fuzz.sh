#!/usr/bin/env bash
# Builds the fuzz targets with clang and libFuzzer (AddressSanitizer and UndefinedBehaviorSanitizer
# on) in build/fuzz, then runs each for a bounded time over its seed corpus in tests/fuzz/corpus.
#   ZELK_FUZZ_SECONDS  seconds per target (default 20)
#   ZELK_FUZZ_TARGETS  targets to run (default: all), e.g. "FuzzYaml FuzzRequest"
# What a run finds is written to build/fuzz/findings/<target>/ and the script fails; the seed corpus
# is never changed. Re-run one finding with: build/fuzz/tests/fuzz/<target> <file>
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${ZELK_FUZZ_SECONDS:-20}
targets=${ZELK_FUZZ_TARGETS:-"FuzzYaml FuzzWorldFile FuzzReplayScript FuzzRequest FuzzSettingsFile"}
dir=build/fuzz
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
CC=clang-14 CXX=clang++-14 cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DZELK_FUZZ=ON -DZELK_TESTS=OFF -DZELK_BENCH=OFF "${launcher[@]}" >/dev/null
# shellcheck disable=SC2086
cmake --build "$dir" -j "$(nproc)" --target $targets
failed=()
for t in $targets; do
    seeds=tests/fuzz/corpus/$t
    work=$dir/corpus/$t        # grows as the run finds new paths; the seeds stay as committed
    findings=$dir/findings/$t
    mkdir -p "$work" "$findings"
    echo "fuzz: $t for ${seconds}s"
    if ! "$dir/tests/fuzz/$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -max_len=65536 -print_final_stats=0 -artifact_prefix="$findings/" "$work" "$seeds" \
        >"$dir/$t.log" 2>&1; then
        echo "fuzz: $t found a failure:"
        grep -E '^(==[0-9]+==ERROR|SUMMARY|.*runtime error)' "$dir/$t.log" | head -5 || tail -20 "$dir/$t.log"
        ls "$findings"
        failed+=("$t")
    fi
done
if [ ${#failed[@]} -gt 0 ]; then
    echo "fuzz: failures in ${failed[*]} (logs in $dir/)"
    exit 1
fi
echo "fuzz: all targets ran clean"
