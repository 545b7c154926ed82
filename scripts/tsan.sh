#!/usr/bin/env bash
# Builds the window-picture tests that run on real threads (the capture queue's thread pool, the
# cache, the hops to the main queue) with ThreadSanitizer, and runs them. A program of its own, from
# just the sources those tests need, so it builds in well under a minute. Exits non-zero on a failed
# test or any report from the sanitizer. ZELK_TSAN_REPEAT=N repeats the tests N times (default 5).
set -euo pipefail
cd "$(dirname "$0")/.."
out=build/tsan
mkdir -p "$out"
cxx=${CXX:-c++}
sources=(
    src/support/Clock.cpp src/support/Log.cpp src/support/MainQueue.cpp
    src/expose/WindowPictures.cpp src/expose/WindowPicturesCache.cpp src/expose/WindowPicturesQueue.cpp
    src/expose/WindowPicturesScale.cpp
    tests/expose/WindowPicturesThreadTest.cpp
)
"$cxx" -std=c++20 -g -O1 -fsanitize=thread -fno-omit-frame-pointer -Wall -Wextra \
    -Isrc -Itests "${sources[@]}" -o "$out/zelk_pictures_tsan" \
    $(pkg-config --cflags --libs fmt spdlog) -lgtest -lgtest_main -pthread
TSAN_OPTIONS="halt_on_error=1 exitcode=66 ${TSAN_OPTIONS:-}" \
    "$out/zelk_pictures_tsan" --gtest_repeat="${ZELK_TSAN_REPEAT:-5}" --gtest_brief=1
