#!/usr/bin/env bash
# Hashing throughput on a 1 GiB file: GetFileMD5 and GetFileCRC32 against md5sum, and the signed
# channel's SHA-256 against sha256sum, same run.
set -euo pipefail
build="$1"
data="$(dirname "$0")/data"
file="$data/hash-1GiB.bin"
mkdir -p "$data"
if [ "$(stat -c %s "$file" 2>/dev/null || echo 0)" != "1073741824" ]; then
    head -c 1073741824 /dev/urandom >"$file"
fi
cat "$file" >/dev/null # warm the page cache
"$build/bench/hash" "$file" 3
