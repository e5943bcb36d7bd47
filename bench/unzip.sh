#!/usr/bin/env bash
# Unpack benchmark: a ~500 MB LZMA2 (-mx1) archive of game-like data unpacked through the unzip
# stage and by the bare 7zz, interleaved in the same run. bench/unzip.sh <build-dir> [rounds]
# The data lives in bench/data/unzip and is removed on exit, also when a step fails.
set -euo pipefail
build="$(cd "${1:-build}" && pwd)"
rounds="${2:-6}"
host="$build/bench/unzip"
source "$(dirname "$0")/../scripts/require.sh"
require_built "unzip bench" "$host"
require_tools "unzip bench" 7zz

data="$(cd "$(dirname "$0")" && pwd)/data/unzip"
rm -rf "$data"
trap 'rm -rf "$data"' EXIT
mkdir -p "$data"

"$host" generate "$data/tree"
(cd "$data/tree" && 7zz a -mx1 -m0=lzma2 "$data/game.7z" '*' >/dev/null)
rm -rf "$data/tree"
"$host" run "$data/game.7z" "$data" "$rounds"
