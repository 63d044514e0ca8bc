#!/usr/bin/env bash
# Builds everything and runs the whole test suite.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QUORBEX_BUILD_DIR:-$root/build}
bash "$root/scripts/setup.sh"
ctest --test-dir "$build" --output-on-failure -j "$(nproc)"
