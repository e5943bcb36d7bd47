#!/usr/bin/env bash
# Writes three versions of a made-up game for the demo and the benchmark:
#   scripts/make-game.sh TARGET MEGABYTES
# gives TARGET/1.0.0.1, TARGET/1.0.0.2 and TARGET/1.0.0.3, each about MEGABYTES MiB. Like a real
# game: a few large pak files of incompressible data that each version changes by small edits, a
# growing pak, binaries, small text files added and removed, and a file with a Chinese name.
set -euo pipefail

target="$1"
total_mb="${2:-250}"
mb=$((1024 * 1024))

random_file() { # path bytes
    mkdir -p "$(dirname "$1")"
    head -c "$2" /dev/urandom > "$1"
}

# Overwrites 64 KiB at a fraction (per mille) of a file's length, in place.
edit_at() { # path permille
    local size offset
    size=$(stat -c %s "$1")
    offset=$((size / 1000 * $2 / 65536))
    dd if=/dev/urandom of="$1" bs=65536 count=1 seek="$offset" conv=notrunc status=none
}

text_file() { # path line...
    mkdir -p "$(dirname "$1")"
    local path="$1"
    shift
    printf '%s\n' "$@" > "$path"
}

v1="$target/1.0.0.1"
rm -rf "$target"
paks="$v1/KX/Content/Paks"
random_file "$paks/pakchunk0-Windows.pak" $((total_mb * mb * 40 / 100))
random_file "$paks/pakchunk1-Windows.pak" $((total_mb * mb * 25 / 100))
random_file "$paks/pakchunk2-Windows.pak" $((total_mb * mb * 15 / 100))
random_file "$paks/pakchunk3-Windows.pak" $((total_mb * mb * 8 / 100))
random_file "$v1/KX/Binaries/Win64/KX-Win64-Shipping.exe" $((total_mb * mb * 6 / 100))
random_file "$v1/KX/Content/Movies/intro.bk2" $((total_mb * mb * 5 / 100))
random_file "$v1/Morvantix.exe" $((total_mb * mb / 100))
for name in Engine Game Input Scalability Legacy Debug; do
    text_file "$v1/Engine/Config/$name.ini" "[$name]" "Version=1" "Quality=Medium"
done
for i in $(seq 1 30); do
    text_file "$v1/KX/Content/Localization/text_$i.locres" "entry $i" "version 1"
done
text_file "$v1/文档/更新说明.txt" "版本 1.0.0.1" "首个版本。"

v2="$target/1.0.0.2"
cp -a "$v1" "$v2"
for permille in 100 500 900; do edit_at "$v2/KX/Content/Paks/pakchunk0-Windows.pak" "$permille"; done
edit_at "$v2/KX/Content/Paks/pakchunk2-Windows.pak" 300
edit_at "$v2/KX/Binaries/Win64/KX-Win64-Shipping.exe" 200
random_file "$v2/KX/Content/Movies/intro2.bk2" $((total_mb * mb / 100))
text_file "$v2/Engine/Config/New.ini" "[New]" "Version=2"
rm "$v2/Engine/Config/Legacy.ini"
text_file "$v2/KX/Content/Localization/text_7.locres" "entry 7" "version 2"
text_file "$v2/文档/更新说明.txt" "版本 1.0.0.2" "新增过场动画。"

v3="$target/1.0.0.3"
cp -a "$v2" "$v3"
for permille in 250 750; do edit_at "$v3/KX/Content/Paks/pakchunk0-Windows.pak" "$permille"; done
edit_at "$v3/KX/Content/Paks/pakchunk1-Windows.pak" 600
head -c $((512 * 1024)) /dev/urandom >> "$v3/KX/Content/Paks/pakchunk3-Windows.pak"
edit_at "$v3/Morvantix.exe" 0
rm "$v3/Engine/Config/Debug.ini"
text_file "$v3/文档/新功能.txt" "新功能列表"
text_file "$v3/文档/更新说明.txt" "版本 1.0.0.3" "修复与改进。"
