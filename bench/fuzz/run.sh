#!/usr/bin/env bash
# Runs every target of a fuzz program for a number of inputs each: bench/fuzz/run.sh <fuzz_readers> [runs].
# Works with both engines: libFuzzer gets a fresh corpus folder per target (seeded by the program),
# the mutation driver ignores it. Stops at the first target that finds a fault.
set -euo pipefail
program="$1"
runs="${2:-100000}"
corpus_root="$(mktemp -d)"
trap 'rm -rf "$corpus_root"' EXIT
for target in $("$program" -list_targets); do
    mkdir -p "$corpus_root/$target"
    start=$(date +%s%N)
    "$program" -target="$target" -runs="$runs" -seed=1 "$corpus_root/$target" >"$corpus_root/$target.log" 2>&1 || {
        cat "$corpus_root/$target.log" >&2
        echo "fuzz target $target failed" >&2
        exit 1
    }
    elapsed_ms=$((($(date +%s%N) - start) / 1000000))
    printf '%-16s %8d inputs %6d.%03d s\n' "$target" "$runs" $((elapsed_ms / 1000)) $((elapsed_ms % 1000))
done
