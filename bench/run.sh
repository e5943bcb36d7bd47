#!/usr/bin/env bash
# Runs every benchmark script of this folder against a built tree: bench/run.sh [build-dir].
# Each bench/<name>.sh takes the build folder as its first argument and prints its own figures.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
build="$(cd "${1:-build}" && pwd)"
for script in "$here"/*.sh; do
    [ "$(basename "$script")" = "run.sh" ] && continue
    echo "== $(basename "$script" .sh)"
    bash "$script" "$build"
done
