#!/usr/bin/env bash
# Installs the Debian packages the build needs, only when one is missing.
set -euo pipefail
pkgs=(cmake ninja-build g++ pkg-config libyaml-dev nlohmann-json3-dev libfmt-dev libspdlog-dev
      libcli11-dev libicu-dev libgtest-dev libgmock-dev libbenchmark-dev
      clang-14 libclang-rt-14-dev   # the fuzz targets (libFuzzer)
      libcairo2-dev libpango1.0-dev fonts-dejavu-core  # the panel drawing (libcairo2-dev also brings cairo-xcb)
      # The X11 backend and its test desktop: xcb and its extensions, a virtual X server, a window manager.
      libxcb1-dev libxcb-ewmh-dev libxcb-icccm4-dev libxcb-xinput-dev libxcb-xtest0-dev libxcb-randr0-dev
      libxcb-keysyms1-dev xvfb openbox x11-utils
      zip)  # the debug dump's archive
missing=()
for p in "${pkgs[@]}"; do
    dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "installing: ${missing[*]}"
    sudo_cmd=""
    [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
    $sudo_cmd apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}"
fi
