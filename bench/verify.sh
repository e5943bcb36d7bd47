#!/usr/bin/env bash
# The verifier against md5sum on the same data in the same run: archive mode on a 1 GiB archive,
# manifest mode by MD5 over 20,000 files of 1-64 KiB plus ten of 64 MiB (against md5sum -c), and by
# size only over the 20,000 small files. Manifest mode hashes ahead on a second core, so it is also
# measured with both sides held to one core. Usage: bench/verify.sh <build-dir>
# The data (about 2.3 GB) is made under bench/data/verify and removed afterwards.
set -euo pipefail
build="$(cd "${1:-build}" && pwd)"
data="$(cd "$(dirname "$0")" && pwd)/data/verify"
trap 'rm -rf "$data"' EXIT
rm -rf "$data"
mkdir -p "$data"
"$build/bench/verify" generate "$data"
find "$data" -type f -exec cat {} + >/dev/null # warm the page cache
"$build/bench/verify" archive "$data/archive-1GiB.bin" 5
"$build/bench/verify" manifest "$data" 5
if command -v taskset >/dev/null; then
    echo "held to one core:"
    taskset -c 0 "$build/bench/verify" manifest "$data" 5
fi
