#!/usr/bin/env bash
# Builds the fuzz targets (formula evaluator, XML data-file reader, CSV import) with clang (libFuzzer, AddressSanitizer, UndefinedBehaviorSanitizer)
# in its own build folder and runs it for the given number of seconds (default 60). Exits non-zero
# when the fuzzer finds a crash, undefined behaviour, a leak or a hang; the input that did it is kept
# in the build folder's artifacts/.
#   run.sh [seconds]          QUORBEX_FUZZ_BUILD_DIR overrides the build folder (default build-fuzz)
set -euo pipefail
seconds=${1:-60}
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
build=${QUORBEX_FUZZ_BUILD_DIR:-$root/build-fuzz}

cxx=$(command -v clang++ || command -v clang++-14 || true)
if [ -z "$cxx" ] || [ -z "$(find /usr/lib/llvm-* -name 'libclang_rt.fuzzer-*.a' 2>/dev/null | head -1)" ]; then
  echo "Installing clang and its libFuzzer runtime"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo_cmd apt-get update -qq
  $sudo_cmd apt-get install -y -qq --no-install-recommends clang libclang-rt-dev
  cxx=$(command -v clang++ || command -v clang++-14)
fi

cmake -S "$here" -B "$build" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j 2

# New inputs go to the build folder; the corpus in the repository is only read. The time is shared by
# the targets: the formula evaluator, the XML data-file reader and the CSV import.
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
targets=(formula xml csv)
share=$(( seconds / ${#targets[@]} ))
[ "$share" -lt 1 ] && share=1
for target in "${targets[@]}"; do
  mkdir -p "$build/corpus-$target" "$build/artifacts-$target"
  dict=()
  [ -f "$here/$target.dict" ] && dict=(-dict="$here/$target.dict")
  echo "== fuzzing $target for $share s"
  "$build/${target}_fuzz" -max_total_time="$share" -max_len=4096 -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 "${dict[@]}" -artifact_prefix="$build/artifacts-$target/" "$build/corpus-$target" \
    "$here/corpus/$target"
done
