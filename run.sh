#!/usr/bin/env bash
# Installs what is missing, builds, and does the main job on a real model: a STEP assembly goes in, the relay serves it.
# Safe to repeat.
set -euo pipefail
cd "$(dirname "$0")"
export KIV_LOG_DIR="$PWD/build/logs"
mkdir -p "$KIV_LOG_DIR"
source scripts/packages.sh

say "packages"
need_packages "${KIV_BUILD_PACKAGES[@]}" "${KIV_STEP_PACKAGES[@]}"

say "build"
cmake --preset linux -DKIV_BUILD_TESTS=OFF -B build/run >"$KIV_LOG_DIR/configure-run.log" 2>&1 ||
  { tail -n 30 "$KIV_LOG_DIR/configure-run.log"; exit 1; }
cmake --build build/run -j "$(nproc)"

say "the main job"
scripts/main_job.sh build/run/bin build/run/job
