#!/usr/bin/env bash
# The patch stage against bare hpatchz calls: 20 diffs over 600 MB of old files, same run.
# The stage runs the next file's diff alongside the current one, so it is also measured with both
# sides held to one core.
set -euo pipefail
build="$1"
data="$(dirname "$0")/data/patch"
rm -rf "$data"
mkdir -p "$data"
trap 'rm -rf "$data"' EXIT
# The stage finds its diff tool beside the command-line programs.
PATH="$build/bin:$PATH" "$build/bench/patch" "$data" 20 30 9
if command -v taskset >/dev/null; then
    echo "held to one core:"
    PATH="$build/bin:$PATH" taskset -c 0 "$build/bench/patch" "$data" 20 30 9
fi
