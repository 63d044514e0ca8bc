#!/usr/bin/env bash
# Builds everything and runs the whole test suite, against a throwaway PostgreSQL cluster that
# with-pg.sh starts for the run and removes afterwards.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QUORBEX_BUILD_DIR:-$root/build}
bash "$root/scripts/setup.sh"
bash "$root/scripts/with-pg.sh" ctest --test-dir "$build" --output-on-failure -j "$(nproc)"
