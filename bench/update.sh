#!/usr/bin/env bash
# Update benchmark: the whole update 1.0.0.1 -> 1.0.0.3 of a game of about 1 GiB through core-update,
# against the bare tools doing the same work on the same files in the same run: curl for the
# downloads, md5sum for the archives and the final check, 7-Zip to unpack, xdelta3 -d to patch (cp and
# rm for added and removed files). Prints both times, their ratio and the host's peak memory; then the
# host once more on the channel signed, with the studio's key, for the time its checks add.
#   bench/update.sh <build-dir>
# Data lives in bench/data/update and is removed at the end, also when a step fails.
set -euo pipefail

here="$(cd "$(dirname "$0")" && pwd)"
build="$(cd "${1:-build}" && pwd)"
size_mb="${UPDATE_BENCH_MB:-1024}"
source "$here/../scripts/require.sh"
source "$here/../scripts/nginx.sh"
require_built "update bench" "$build"/bin/{core-update,core-publish,hpatchz} "$build/bench/runpeak"
require_tools "update bench" curl md5sum xdelta3
sevenzip="$(command -v 7z || command -v 7zz)"

work="$here/data/update"
cleanup() {
    stop_nginx
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM
rm -rf "$work"
mkdir -p "$work/versions" "$work/app"
cp "$build/bin/core-update" "$work/app/"
export PATH="$build/bin:$PATH"

echo "-- making and publishing three versions of a $size_mb MiB game (not timed)"
bash "$here/../scripts/make-game.sh" "$work/game" "$size_mb"
cp -a "$work/game/1.0.0.1" "$work/versions/"
"$build/bin/core-publish" --level 1 "$work/versions" "$work/www/channel" >/dev/null
start_nginx "$work/www" "$work/nginx"
server="http://127.0.0.1:$nginx_port/channel"
"$work/app/core-update" install --server "$server" --dir "$work/install" 2>/dev/null
cp -a "$work/game/1.0.0.2" "$work/game/1.0.0.3" "$work/versions/"
"$build/bin/core-publish" --level 1 "$work/versions" "$work/www/channel" >/dev/null
cp -a "$work/install" "$work/install-1.0.0.1"
cp "$work/app/config.ini" "$work/config-1.0.0.1.ini"

# The chain as the host will take it: the archives of the patch lines, oldest first.
mapfile -t patches < <(awk -F'|' '$1 ~ /->/ { split($1, v, "->"); if (v[1] != v[2]) print $2 }' \
    "$work/www/channel/manifest.txt" | sort)

# Adds the wall time of a command to the running sum of the bare tools.
tools_total=0
timed() {
    local t0 t1
    t0=$(date +%s.%N)
    "$@" >/dev/null
    t1=$(date +%s.%N)
    tools_total=$(awk -v s="$tools_total" -v a="$t0" -v b="$t1" 'BEGIN { print s + b - a }')
}

bare_update() {
    local game="$1" cache="$work/bare-cache" package info kind path rest
    for package in "${patches[@]}"; do
        rm -rf "$cache"
        mkdir -p "$cache/unzip"
        timed curl -s -o "$cache/package.7z" "$server/$package"
        timed md5sum "$cache/package.7z"
        timed "$sevenzip" x -y -o"$cache/unzip" "$cache/package.7z"
        info="$cache/unzip/manifest.txt"
        kind=""
        while IFS='|' read -r path rest; do
            case "$path" in
            --del_file--|--new_file--|--patch_file--) kind="$path"; continue ;;
            "") continue ;;
            esac
            case "$kind" in
            --patch_file--)
                timed xdelta3 -d -f -s "$game/${path%.patch}" "$cache/unzip/$path" "$game/${path%.patch}.new"
                mv "$game/${path%.patch}.new" "$game/${path%.patch}" ;;
            --new_file--)
                mkdir -p "$(dirname "$game/$path")"
                timed cp "$cache/unzip/$path" "$game/$path" ;;
            --del_file--)
                timed rm -f "$game/$path" ;;
            esac
        done < "$info"
    done
    rm -rf "$cache"
    # The final check of every file, as the host's verification does.
    timed bash -c "cd '$game' && find . -type f -print0 | xargs -0 md5sum"
}

reset_host() {
    rm -rf "$work/install"
    cp -a "$work/install-1.0.0.1" "$work/install"
    cp "$work/config-1.0.0.1.ini" "$work/app/config.ini"
    sync
}

best_tools=""
best_host=""
peak=0
ratios=()
for round in 1 2 3; do
    reset_host
    tools_total=0
    bare_update "$work/install/MorvantixGame"
    diff -r "$work/install/MorvantixGame" "$work/game/1.0.0.3" >/dev/null || { echo "update bench: the bare tools did not reach 1.0.0.3" >&2; exit 1; }
    [ -z "$best_tools" ] || awk -v a="$tools_total" -v b="$best_tools" 'BEGIN { exit !(a < b) }' && best_tools="$tools_total"

    reset_host
    line="$("$build/bench/runpeak" "$work/app/core-update" update --server "$server" --dir "$work/install" 2>&1 >/dev/null | tail -n 1)"
    diff -r "$work/install/MorvantixGame" "$work/game/1.0.0.3" >/dev/null || { echo "update bench: the host did not reach 1.0.0.3: $line" >&2; exit 1; }
    seconds="$(echo "$line" | sed -n 's/.*seconds=\([^ ]*\).*/\1/p')"
    kib="$(echo "$line" | sed -n 's/.*peak_kib=\([^ ]*\).*/\1/p')"
    [ "$kib" -gt "$peak" ] && peak="$kib"
    [ -z "$best_host" ] || awk -v a="$seconds" -v b="$best_host" 'BEGIN { exit !(a < b) }' && best_host="$seconds"
    ratios+=("$(awk -v h="$seconds" -v t="$tools_total" 'BEGIN { printf "%.2f", h / t }')")
    echo "round $round: bare tools $tools_total s, host $seconds s, ratio ${ratios[-1]}"
done
median="$(printf '%s\n' "${ratios[@]}" | sort -n | sed -n 2p)"

# The same update from the channel signed, the host checking it with the studio's key: what the
# checks add. Publishing again with --sign takes every package over unchanged.
"$build/bin/core-publish" --generate-key "$work/studio.key"
"$build/bin/core-publish" --level 1 "$work/versions" "$work/www/channel" --sign "$work/studio.key" >/dev/null 2>&1
best_trusted=""
for round in 1 2 3; do
    reset_host
    line="$("$build/bench/runpeak" "$work/app/core-update" update --server "$server" --dir "$work/install" \
        --trust "$work/studio.key.pub" 2>&1 >/dev/null | tail -n 1)"
    diff -r "$work/install/MorvantixGame" "$work/game/1.0.0.3" >/dev/null || { echo "update bench: the checking host did not reach 1.0.0.3: $line" >&2; exit 1; }
    seconds="$(echo "$line" | sed -n 's/.*seconds=\([^ ]*\).*/\1/p')"
    [ -z "$best_trusted" ] || awk -v a="$seconds" -v b="$best_trusted" 'BEGIN { exit !(a < b) }' && best_trusted="$seconds"
    echo "signed round $round: host with --trust $seconds s"
done

awk -v t="$best_tools" -v h="$best_host" -v p="$peak" -v n="${#patches[@]}" -v m="$median" 'BEGIN {
    printf "update 1.0.0.1 -> 1.0.0.3 (%d patches; best of three rounds each)\n", n
    printf "bare tools %8.2f s (curl + md5sum + 7z x + xdelta3 -d + cp/rm + md5sum of the game)\n", t
    printf "core-update %7.2f s\n", h
    printf "ratio      %8.2f (best host / best tools; the goal is at most 1.15), median of the rounds %.2f\n", h / t, m
    printf "host peak memory %.1f MiB (the goal is under 100)\n", p / 1024
}'
awk -v h="$best_host" -v s="$best_trusted" 'BEGIN {
    printf "core-update --trust %.2f s on the signed channel: checking adds %.2f s (%.1f%%)\n", s, s - h, (s - h) * 100 / h
}'
