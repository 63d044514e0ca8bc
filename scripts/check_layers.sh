#!/usr/bin/env bash
# Checks that backend-specific SQL and backend headers stay inside src/platform/db/: the library core
# and the tools talk to every engine through include/quorbex/engine.h only.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
found=$(grep -rnE 'AUTOINCREMENT|PRAGMA|sqlite_|sqlite3\.h|platform/db/[a-z]+/' \
          --include='*.h' --include='*.cpp' src tools | grep -v '^src/platform/db/' || true)
if [ -n "$found" ]; then
  echo "Backend-specific SQL or headers outside src/platform/db/:"
  echo "$found"
  exit 1
fi
echo "layers: no backend-specific SQL or headers outside src/platform/db/"
