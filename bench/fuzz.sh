#!/usr/bin/env bash
# Fuzzes every text reader for 100,000 inputs under AddressSanitizer and UndefinedBehaviorSanitizer.
# With clang++ the readers are built once more in <build-dir>/fuzz-clang and driven by libFuzzer;
# otherwise the mutation driver of the main build runs. Usage: bench/fuzz.sh <build-dir> [runs]
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
build="$(cd "$1" && pwd)"
runs="${2:-100000}"
program="$build/bench/fuzz/fuzz_readers"
if command -v clang++ >/dev/null; then
    cmake -S "$here/.." -B "$build/fuzz-clang" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
    cmake --build "$build/fuzz-clang" --target fuzz_readers -j "$(nproc)" >/dev/null
    program="$build/fuzz-clang/bench/fuzz/fuzz_readers"
    echo "engine: libFuzzer (clang)"
else
    echo "engine: mutation driver"
fi
bash "$here/fuzz/run.sh" "$program" "$runs"
