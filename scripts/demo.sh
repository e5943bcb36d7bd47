#!/usr/bin/env bash
# make demo: a whole update served by a real web server, end to end.
#   scripts/demo.sh [build-dir]
# Makes three versions of a small game, publishes the first with core-publish, serves the channel
# with a private nginx, installs 1.0.0.1 with core-update, publishes up to 1.0.0.3, updates through
# the chain of patches, damages one file and repairs it, then prints what each stage took. Everything
# lives in a temporary folder that is removed at the end, also when a step fails.
set -euo pipefail

here="$(cd "$(dirname "$0")" && pwd)"
build="$(cd "${1:-build}" && pwd)"
size_mb="${DEMO_MB:-250}"
source "$here/require.sh"
source "$here/nginx.sh"
require_built demo "$build"/bin/{core-update,core-publish,hpatchz}

work="$(mktemp -d "${TMPDIR:-/tmp}/core-demo.XXXXXX")"
cleanup() {
    stop_nginx
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM
started=$(date +%s.%N)

echo "== making three versions of a $size_mb MB game"
bash "$here/make-game.sh" "$work/game" "$size_mb"
mkdir -p "$work/versions" "$work/www" "$work/app"
# The host keeps config.ini and its log beside itself; a copy keeps the demo's out of the build.
cp "$build/bin/core-update" "$work/app/"
export PATH="$build/bin:$PATH" # the patch tool

publish() {
    "$build/bin/core-publish" --level 1 "$work/versions" "$work/www/channel" >/dev/null
}

echo "== publishing 1.0.0.1"
cp -a "$work/game/1.0.0.1" "$work/versions/"
publish
start_nginx "$work/www" "$work/nginx"
server="http://127.0.0.1:$nginx_port/channel"
game="$work/install/MorvantixGame"

full_package_bytes() { # version
    awk -F'|' -v v="$1->$1" '$1 == v { sum += $4 } END { printf "%d\n", sum }' "$work/www/channel/manifest.txt"
}

game_state() {
    local v
    for v in 1.0.0.3 1.0.0.2 1.0.0.1; do
        diff -r "$game" "$work/game/$v" >/dev/null 2>&1 && { echo "= $v"; return; }
    done
    echo "differs"
}

rows=()
# Runs one host command as a stage of the table: name, version whose full package it compares with,
# then the host's arguments.
stage() {
    local name="$1" version="$2" before t0 t1 code=0
    shift 2
    echo "== $name: core-update $*"
    before=$(wc -l < "$nginx_log")
    t0=$(date +%s.%N)
    "$work/app/core-update" "$@" --server "$server" --dir "$work/install" || code=$?
    t1=$(date +%s.%N)
    rows+=("$name|$(awk -v a="$t0" -v b="$t1" 'BEGIN { print b - a }')|$(bytes_sent_since "$before")|$(full_package_bytes "$version")|$(game_state)|$code")
}

stage "install 1.0.0.1" 1.0.0.1 install
echo "== publishing 1.0.0.2 and 1.0.0.3"
cp -a "$work/game/1.0.0.2" "$work/game/1.0.0.3" "$work/versions/"
publish
stage "update to 1.0.0.3" 1.0.0.3 update

damaged="KX/Content/Paks/pakchunk2-Windows.pak"
echo "== damaging $damaged"
dd if=/dev/urandom of="$game/$damaged" bs=4096 count=1 seek=100 conv=notrunc status=none
stage "verify (damaged)" 1.0.0.3 verify
stage "repair" 1.0.0.3 repair

finished=$(date +%s.%N)
echo
printf '%-20s %8s %12s %14s %7s  %-10s %s\n' stage time downloaded "full package" share "game" exit
for row in "${rows[@]}"; do
    IFS='|' read -r name seconds bytes full state code <<< "$row"
    awk -v n="$name" -v s="$seconds" -v b="$bytes" -v f="$full" -v g="$state" -v c="$code" 'BEGIN {
        printf "%-20s %7.1fs %9.1f MB %11.1f MB %6.1f%%  %-10s %s\n", n, s, b / 1048576, f / 1048576, (f > 0 ? 100 * b / f : 0), g, c
    }'
done
echo "whole demo: $(awk -v a="$started" -v b="$finished" 'BEGIN { printf "%.0f", b - a }') s (MB = 2^20 bytes)"
[ "$(game_state)" = "= 1.0.0.3" ] || { echo "demo: the game folder does not equal 1.0.0.3" >&2; exit 1; }
echo "the game folder equals version 1.0.0.3 file by file"
