#!/usr/bin/env bash
# Installs what the build needs (Debian packages; skipped when already present), then configures and
# builds. Used by demo.sh, test.sh and CI.
#   QUORBEX_BUILD_DIR  build folder (default: build)
#   QUORBEX_SANITIZE   1 for an AddressSanitizer + UndefinedBehaviorSanitizer build
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QUORBEX_BUILD_DIR:-$root/build}

packages=(g++ cmake ninja-build pkg-config libsqlite3-dev libpugixml-dev libxml2-dev libcli11-dev libgtest-dev
          libpq-dev postgresql mdbtools-dev libreoffice-calc-nogui libreoffice-dev)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo_cmd apt-get update -qq
  $sudo_cmd apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

sanitize=OFF
[ "${QUORBEX_SANITIZE:-0}" = "1" ] && sanitize=ON
cmake -S "$root" -B "$build" -G Ninja -DQUORBEX_SANITIZE=$sanitize >/dev/null
cmake --build "$build" -j "$(nproc)"
