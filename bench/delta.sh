#!/usr/bin/env bash
# The diff engine on real binaries nobody here wrote, against bsdiff, "xdelta3 -9" and
# "zstd -19 --long=31 --patch-from", in the same run:
#
#   bench/delta.sh [build-dir]
#
# Debian packages are fetched with "apt-get download" into a cache outside the repository
# (${CORE_BENCH_CACHE:-$HOME/.cache/core-bench}); the peers' results are kept there too, keyed by the
# checksums of their inputs, because bsdiff takes many minutes per file. For each pair the largest
# changed file is diffed; sizes are after packing with 7-Zip as the publisher packs (-mx5); ours is
# applied through hpatchz on disk and on a tmpfs (/dev/shm), and small pairs have bsdiff timed again
# right beside ours. Then a generated 4 GiB file with 20 scattered 4 KiB edits is diffed under the
# publisher's default budget.
# Without a build folder (or without its programs) only the peers run, which fills the cache.
set -uo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
build="${1:-}"
[ -n "$build" ] && build="$(cd "$build" 2>/dev/null && pwd)"
cache="${CORE_BENCH_CACHE:-$HOME/.cache/core-bench}"
mkdir -p "$cache/debs" "$cache/trees" "$cache/results"
work="$(mktemp -d "${TMPDIR:-/tmp}/core-delta-bench.XXXXXX")"
trap 'rm -rf "$work"' EXIT
echo "cache: $cache"

for tool in bsdiff xdelta3 zstd; do
    command -v "$tool" >/dev/null && continue
    echo "installing the peer tools (bsdiff, xdelta3, zstd)"
    SUDO=""
    [ "$(id -u)" -ne 0 ] && SUDO="sudo"
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends bsdiff xdelta3 zstd \
        >/dev/null || { echo "cannot install the peer tools; skipped"; exit 0; }
    break
done
sevenzip="$(command -v 7zz || command -v 7z)"

# pkg=version -> a folder holding the package's files, or "" when the mirror does not have it.
tree_of() {
    local package="$1" deb dir
    dir="$cache/trees/${package//[:=]/_}"
    if [ ! -d "$dir" ]; then
        deb="$(ls "$cache/debs/${package%%=*}_"*"$(echo "${package#*=}" | sed 's/^[0-9]*://')"_*.deb 2>/dev/null | head -1)"
        if [ -z "$deb" ]; then
            (cd "$cache/debs" && apt-get download -q "$package" >/dev/null 2>&1) || {
                echo "  $package: not on the mirror" >&2
                return 0
            }
            deb="$(ls -t "$cache/debs/${package%%=*}_"*.deb | head -1)"
        fi
        mkdir -p "$dir.part" && dpkg-deb -x "$deb" "$dir.part" && mv "$dir.part" "$dir"
    fi
    echo "$dir"
}

# The largest regular file present in both trees whose bytes differ.
largest_changed() {
    local old="$1" new="$2"
    (cd "$new" && find . -type f -printf '%s %P\n') | sort -rn | while read -r size rel; do
        if [ -f "$old/$rel" ] && ! cmp -s "$old/$rel" "$new/$rel"; then
            echo "$rel"
            return
        fi
    done
}

packed_size() {
    rm -f "$work/p.7z"
    (cd "$(dirname "$1")" && "$sevenzip" a -t7z -mx5 -bso0 -bsp0 "$work/p.7z" "$(basename "$1")" >/dev/null)
    stat -c %s "$work/p.7z"
}

# "<seconds> <peak KiB>" of a command, its output thrown away.
measure() {
    /usr/bin/time -f '%e %M' -o "$work/time" "$@" >/dev/null 2>&1 || { echo "failed"; return; }
    cat "$work/time"
}

# One peer on one pair, cached: "<name> <seconds> <peak KiB> <diff bytes> <packed bytes>".
peer() {
    local name="$1" old="$2" new="$3" key result diff="$work/peer.diff"
    key="$(cat "$old" "$new" | sha256sum | cut -c1-32)"
    result="$cache/results/$key.$name"
    if [ ! -s "$result" ]; then
        rm -f "$diff"
        local figures
        case "$name" in
            bsdiff) figures="$(measure nice -n 19 bsdiff "$old" "$new" "$diff")" ;;
            xdelta3) figures="$(measure nice -n 19 xdelta3 -9 -e -f -s "$old" "$new" "$diff")" ;;
            zstd) figures="$(measure nice -n 19 zstd -q -f -19 --long=31 --patch-from="$old" "$new" -o "$diff")" ;;
        esac
        [ "$figures" = "failed" ] && { echo "$name failed"; return; }
        echo "$name $figures $(stat -c %s "$diff") $(packed_size "$diff")" >"$result"
    fi
    cat "$result"
}

# The apply through hpatchz in place in folder $1 (warm cache), checked, best of five; $2 names the
# place. Timed in nanoseconds around hpatchz alone: a small pair applies in a few hundredths of a
# second, and a wrapper's own start would be a good part of that. The peak comes from one more run
# under /usr/bin/time.
apply_in() {
    local folder="$1" place="$2" old="$3" diff="$4" new="$5" best="" peak start end run
    for run in 1 2 3 4 5; do
        cp "$old" "$folder/target"
        sync
        cat "$old" "$diff" >/dev/null
        start="$(date +%s%N)"
        "$build/bin/hpatchz" "$folder/target" "$diff" "$folder/target" -f -s-1m -C-old-new-diff >/dev/null 2>&1 \
            || { echo "apply $place: hpatchz failed"; return; }
        end="$(date +%s%N)"
        if ! cmp -s "$folder/target" "$new"; then
            echo "apply $place: hpatchz did not rebuild the new file"
            rm -f "$folder/target"
            return
        fi
        [ -z "$best" ] || [ $((end - start)) -lt "$best" ] && best=$((end - start))
    done
    cp "$old" "$folder/target"
    /usr/bin/time -f '%M' -o "$work/time" "$build/bin/hpatchz" "$folder/target" "$diff" "$folder/target" \
        -f -s-1m -C-old-new-diff >/dev/null 2>&1
    peak="$(cat "$work/time")"
    rm -f "$folder/target"
    echo "$best $peak $(stat -c %s "$new")" | awk -v place="$place" \
        '{ printf "apply %s %.3f s (best of 5) %d KiB peak %.0f MB/s of new file\n", place, $1 / 1e9, $2, $3 / 1e6 / ($1 / 1e9) }'
}

# Ours on one pair: the same figures, then the apply on disk and on a tmpfs. A small pair has
# bsdiff timed again right before ours, so the two times share the machine's load.
ours() {
    local old="$1" new="$2" diff="$work/ours.diff" figures shm
    if [ "$(stat -c %s "$new")" -lt $((16 << 20)) ]; then
        echo "bsdiff beside ours $(measure bsdiff "$old" "$new" "$work/beside.diff")"
        rm -f "$work/beside.diff"
    fi
    figures="$(measure "$build/bench/encode" "$old" "$new" "$diff")"
    [ "$figures" = "failed" ] && { echo "ours: encode failed"; return; }
    echo "ours $figures $(stat -c %s "$diff") $(packed_size "$diff")"
    apply_in "$work" "on disk" "$old" "$diff" "$new"
    if [ -d /dev/shm ] && shm="$(mktemp -d /dev/shm/core-delta-bench.XXXXXX)"; then
        cp "$diff" "$shm/diff"
        apply_in "$shm" "on tmpfs" "$old" "$shm/diff" "$new"
        rm -rf "$shm"
    fi
    rm -f "$diff"
}

compare_pair() {
    local pkg="$1" from="$2" to="$3" old new rel
    old="$(tree_of "$pkg=$from")"
    new="$(tree_of "$pkg=$to")"
    echo "== $pkg $from -> $to"
    if [ -z "$old" ] || [ -z "$new" ]; then
        echo "  skipped: a version is missing from the mirror"
        return
    fi
    rel="$(largest_changed "$old" "$new")"
    [ -z "$rel" ] && { echo "  no changed file"; return; }
    echo "  $rel: old $(stat -c %s "$old/$rel") bytes, new $(stat -c %s "$new/$rel") bytes"
    echo "  tool seconds peak_kib diff_bytes packed_bytes"
    for p in bsdiff xdelta3 zstd; do
        echo "  $(peer "$p" "$old/$rel" "$new/$rel")"
    done
    if [ -n "$build" ] && [ -x "$build/bench/encode" ] && [ -x "$build/bin/hpatchz" ]; then
        ours "$old/$rel" "$new/$rel" | sed 's/^/  /'
    fi
}

# A major jump as the publisher packs it: the patch package against the full package of the target.
publish_pair() {
    local pkg="$1" from="$2" to="$3" old new
    old="$(tree_of "$pkg=$from")"
    new="$(tree_of "$pkg=$to")"
    [ -z "$old" ] || [ -z "$new" ] && return
    [ -n "$build" ] && [ -x "$build/bin/core-publish" ] || return
    echo "== $pkg $from -> $to published"
    # The publisher refuses links: the versions are copied (hard links where the cache allows).
    mkdir -p "$work/versions"
    cp -al "$old" "$work/versions/1.0.0.1" 2>/dev/null || cp -a "$old" "$work/versions/1.0.0.1"
    cp -al "$new" "$work/versions/1.0.0.2" 2>/dev/null || cp -a "$new" "$work/versions/1.0.0.2"
    # A package's own links (docs, library names) are no game files.
    find "$work/versions" -type l -delete
    /usr/bin/time -f '  publish: %e s, peak %M KiB' "$build/bin/core-publish" "$work/versions" "$work/channel" \
        2>&1 | grep -E 'publish:|whole|left out|error' | sed 's/^/  /'
    for f in "$work"/channel/patch/*/*.7z "$work"/channel/full/1.0.0.2/*.7z*; do
        [ -f "$f" ] && echo "  ${f#"$work"/channel/} $(stat -c %s "$f") bytes"
    done
    rm -rf "$work/versions" "$work/channel"
}

if ! apt-get download --print-uris libssl3 >/dev/null 2>&1; then
    echo "the package mirror cannot be reached; skipped"
    exit 0
fi
compare_pair libnode108 18.20.4+dfsg-1~deb12u2 18.20.4+dfsg-1~deb12u3
compare_pair openjdk-17-jre-headless 17.0.19+10-1~deb12u2 17.0.21.1+2-1~deb12u1
compare_pair libssl3 3.0.17-1~deb12u2 3.0.20-1~deb12u2
compare_pair libssl3 3.0.20-1~deb12u2 3.0.22-1~deb12u2
compare_pair thunderbird 1:140.12.0esr-1~deb12u1 1:153.7.0esr-1~deb12u1

# 4 GiB with 20 scattered edits of 4 KiB, diffed under the publisher's default budget of 2 GiB.
if [ -n "$build" ] && [ -x "$build/bench/encode" ] && [ "$(df --output=avail -k "$work" | tail -1)" -gt 10000000 ]; then
    echo "== generated 4 GiB file, 20 edits of 4 KiB"
    head -c $((4 << 30)) /dev/urandom >"$work/big.old" 2>/dev/null || openssl rand $((4 << 30)) >"$work/big.old"
    cp "$work/big.old" "$work/big.new"
    for i in $(seq 1 20); do
        head -c 4096 /dev/urandom | dd of="$work/big.new" bs=4096 seek=$((i * 50000 + i * 7)) conv=notrunc status=none
    done
    figures="$(measure "$build/bench/encode" --budget 2g "$work/big.old" "$work/big.new" "$work/big.diff")"
    echo "  encode (seconds peak_kib): $figures; diff $(stat -c %s "$work/big.diff") bytes, packed $(packed_size "$work/big.diff") bytes"
    applied="$(measure "$build/bin/hpatchz" "$work/big.old" "$work/big.diff" "$work/big.out" -f -s-1m -C-old-new-diff)"
    cmp -s "$work/big.out" "$work/big.new" && echo "  apply (seconds peak_kib): $applied, identical" \
        || echo "  apply: not identical ($applied)"
    rm -f "$work"/big.*
fi

publish_pair thunderbird 1:140.12.0esr-1~deb12u1 1:153.7.0esr-1~deb12u1
