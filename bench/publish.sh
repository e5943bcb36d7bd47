#!/usr/bin/env bash
# Publishing benchmark: core-publish on two versions of a ~1 GB game (three large packs with small
# edits, 2000 small files of which some change, go or come) against the bare tools doing the same
# work by hand on the same data in the same run: 7-Zip for both full packages and the patch package,
# xdelta3 -e for every changed file, md5sum for every file and archive. Then the unchanged channel
# published again unsigned and signed, for the time signing adds.
#   bench/publish.sh <build-dir>        (PUBLISH_BENCH_MB=<size of a version> to try another size)
# The data lives in bench/data/publish and is removed on exit, also when a step fails.
set -euo pipefail

build="$(cd "${1:-build}" && pwd)"
publisher="$build/bin/core-publish"
source "$(dirname "$0")/../scripts/require.sh"
require_built "publish bench" "$publisher"
require_tools "publish bench" xdelta3
sevenzip="$(command -v 7zz || command -v 7z)"

data="$(cd "$(dirname "$0")" && pwd)/data/publish"
rm -rf "$data"
trap 'rm -rf "$data"' EXIT
trap 'exit 130' INT TERM

megabytes="${PUBLISH_BENCH_MB:-1024}"
pack_mb=$((megabytes / 4))
small_kb=128
small_count=$((megabytes * 1024 / 4 / small_kb))
v1="$data/versions/1.0.0.1"
v2="$data/versions/1.0.0.2"

echo "making two versions of $megabytes MB: 3 packs of $pack_mb MB, $small_count files of $small_kb KB"
mkdir -p "$v1/Paks" "$v1/Data"
for i in 0 1 2; do head -c $((pack_mb * 1024 * 1024)) /dev/urandom >"$v1/Paks/pak$i.pak"; done
# Half the small files random, half text-like, as a game's configuration and scripts are.
head -c $((small_count / 2 * small_kb * 1024)) /dev/urandom | split -b ${small_kb}k -a 4 - "$v1/Data/bin_"
head -c $((small_count / 2 * small_kb * 1024 * 3 / 4)) /dev/urandom | base64 -w 100 | split -b ${small_kb}k -a 4 - "$v1/Data/txt_"
cp -r "$v1" "$v2"
for i in 0 1 2; do
    for offset in 1000000 $((pack_mb * 1024 * 512)) $((pack_mb * 1024 * 1000)); do
        head -c 4096 /dev/urandom | dd of="$v2/Paks/pak$i.pak" bs=4096 seek=$((offset / 4096)) conv=notrunc status=none
    done
done
head -c $((1024 * 1024)) /dev/urandom >>"$v2/Paks/pak2.pak"
mapfile -t small < <(cd "$v2" && find Data -type f | sort)
for ((i = 0; i < ${#small[@]}; i += 20)); do
    printf 'edited %d' "$i" | dd of="$v2/${small[i]}" bs=1 seek=1000 conv=notrunc status=none
done
for ((i = 7; i < ${#small[@]}; i += 70)); do rm "$v2/${small[i]}"; done
for i in $(seq 1 30); do head -c $((small_kb * 1024)) /dev/urandom >"$v2/Data/new_$i.bin"; done
cat "$v1"/*/* "$v2"/*/* >/dev/null # both sides start from a warm page cache

now() { date +%s.%N; }
elapsed() { echo "$2 - $1" | bc; }

# The bare tools, the way an operator would publish by hand.
bare="$data/bare"
mkdir -p "$bare/patch"
zip_args=(a -t7z -mx5 -mtm=off -mtc=off -mta=off -bso0 -bsp0 -scsUTF-8 -y)
t0=$(now)
(cd "$v1" && find . -type f -printf '%P\n' | sort >"$bare/list1" && xargs -d '\n' md5sum <"$bare/list1" >"$bare/md5-1")
(cd "$v2" && find . -type f -printf '%P\n' | sort >"$bare/list2" && xargs -d '\n' md5sum <"$bare/list2" >"$bare/md5-2")
t1=$(now)
(cd "$v1" && "$sevenzip" "${zip_args[@]}" "$bare/full1.7z" @"$bare/list1")
(cd "$v2" && "$sevenzip" "${zip_args[@]}" "$bare/full2.7z" @"$bare/list2")
t2=$(now)
awk 'NR == FNR { old[$2] = $1; next } !($2 in old) { print "new " $2 } ($2 in old) && old[$2] != $1 { print "changed " $2 }' \
    "$bare/md5-1" "$bare/md5-2" >"$bare/changes"
while read -r kind path; do
    mkdir -p "$bare/patch/$(dirname "$path")"
    if [ "$kind" = changed ]; then
        xdelta3 -e -9 -f -s "$v1/$path" "$v2/$path" "$bare/patch/$path.patch"
    else
        ln "$v2/$path" "$bare/patch/$path"
    fi
done <"$bare/changes"
t3=$(now)
(cd "$bare/patch" && find . -type f -printf '%P\n' | sort >"$bare/list3" && "$sevenzip" "${zip_args[@]}" "$bare/patch.7z" @"$bare/list3")
t4=$(now)
md5sum "$bare"/*.7z >/dev/null
t5=$(now)

"$publisher" "$data/versions" "$data/out" 2>"$data/publish.log"
t6=$(now)

# The extra time of signing: the unchanged channel published again, unsigned and then signed. Every
# package is taken over either way, so the difference is the signed list's hashing.
"$publisher" --generate-key "$data/studio.key"
"$publisher" "$data/versions" "$data/out" 2>>"$data/publish.log"
t7=$(now)
"$publisher" "$data/versions" "$data/out" --sign "$data/studio.key" 2>>"$data/publish.log"
t8=$(now)

hash_s=$(elapsed "$t0" "$t1")
full_s=$(elapsed "$t1" "$t2")
diff_s=$(elapsed "$t2" "$t3")
patch_s=$(elapsed "$t3" "$t4")
sums_s=$(elapsed "$t4" "$t5")
bare_s=$(elapsed "$t0" "$t5")
publish_s=$(elapsed "$t5" "$t6")
printf 'bare tools: md5sum of the files %.1f s, 7z a of two full packages %.1f s, xdelta3 -e %.1f s (%d changed files), 7z a of the patch %.1f s, md5sum of the archives %.1f s\n' \
    "$hash_s" "$full_s" "$diff_s" "$(grep -c '^changed' "$bare/changes")" "$patch_s" "$sums_s"
printf 'bare tools total   %8.1f s\n' "$bare_s"
printf 'core-publish       %8.1f s (also copies the loose files and proves every diff)\n' "$publish_s"
printf 'ratio              %8.3f (goal: at most 1.15)\n' "$(echo "$publish_s / $bare_s" | bc -l)"
printf 'signing            %8.1f s (publishing the unchanged channel again: %.1f s unsigned, %.1f s signed; %s signed)\n' \
    "$(elapsed "$t6" "$t7" | awk -v s="$(elapsed "$t7" "$t8")" '{ print s - $1 }')" "$(elapsed "$t6" "$t7")" \
    "$(elapsed "$t7" "$t8")" "$(du -ch "$data"/out/full/*/* "$data"/out/patch/*/* | tail -1 | cut -f1)"
printf 'sizes: full packages %s, patch %s (bare patch %s)\n' \
    "$(du -ch "$data"/out/full/*/* | tail -1 | cut -f1)" "$(du -h "$data"/out/patch/*/* | cut -f1)" "$(du -h "$bare/patch.7z" | cut -f1)"
