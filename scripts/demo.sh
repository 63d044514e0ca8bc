#!/usr/bin/env bash
# Builds everything and runs the main job: `qdl demo` on an embedded SQLite database it creates.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QUORBEX_BUILD_DIR:-$root/build}
bash "$root/scripts/setup.sh"
if [ -x "$build/tools/qdl/qdl" ]; then
  "$build/tools/qdl/qdl" demo "$@"
else
  echo "qdl is not built yet in this version; the library and its tests are. Run scripts/test.sh."
fi
