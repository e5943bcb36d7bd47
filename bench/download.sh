#!/usr/bin/env bash
# Download benchmark: the download manager against curl, both fetching from a local nginx.
#   bench/download.sh <build-dir>
# Makes its data in a temporary folder, runs nginx there as the current user on a free port, and
# removes everything on exit, also when a step fails.
set -euo pipefail

build="$(cd "${1:-build}" && pwd)"
host="$build/bench/download"
nginx_bin="${NGINX:-/usr/sbin/nginx}"
[ -x "$host" ] || { echo "download bench: $host is not built" >&2; exit 1; }
[ -x "$nginx_bin" ] || { echo "download bench: nginx not found at $nginx_bin" >&2; exit 1; }
command -v curl >/dev/null || { echo "download bench: curl not found" >&2; exit 1; }

work="$(mktemp -d "${TMPDIR:-/tmp}/core-bench-download.XXXXXX")"
nginx_pid=""
cleanup() {
    if [ -n "$nginx_pid" ] && kill -0 "$nginx_pid" 2>/dev/null; then
        kill "$nginx_pid" 2>/dev/null || true
        wait "$nginx_pid" 2>/dev/null || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

mkdir -p "$work/www" "$work/nginx" "$work/out"

# Random bytes: nothing on the way can shortcut them.
head -c $((1024 * 1024 * 1024)) /dev/urandom > "$work/www/big.bin"
for i in 1 2 3 4 5; do
    head -c $((200 * 1024 * 1024)) /dev/urandom > "$work/www/part$i.bin"
done

free_port() {
    local port
    for port in $(shuf -i 20000-60000 -n 100); do
        if ! (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
            echo "$port"
            return 0
        fi
    done
    return 1
}
# The fresh data must be on disk before anything is timed, or its write-back slows the first run.
sync
port="$(free_port)"

cat > "$work/nginx/nginx.conf" <<CONF
daemon off;
master_process off;
worker_processes 1;
pid $work/nginx/nginx.pid;
error_log $work/nginx/error.log;
events { worker_connections 64; }
http {
    access_log off;
    sendfile on;
    tcp_nopush on;
    default_type application/octet-stream;
    client_body_temp_path $work/nginx/body;
    proxy_temp_path $work/nginx/proxy;
    fastcgi_temp_path $work/nginx/fastcgi;
    uwsgi_temp_path $work/nginx/uwsgi;
    scgi_temp_path $work/nginx/scgi;
    server {
        listen 127.0.0.1:$port;
        root $work/www;
    }
}
CONF
"$nginx_bin" -p "$work/nginx" -e "$work/nginx/error.log" -c "$work/nginx/nginx.conf" &
nginx_pid=$!
for _ in $(seq 50); do
    curl -s -o /dev/null "http://127.0.0.1:$port/part1.bin" -r 0-0 && break
    sleep 0.1
done

base="http://127.0.0.1:$port"
big_size=$(stat -c %s "$work/www/big.bin")
part_size=$(stat -c %s "$work/www/part1.bin")

# Prints "wall user sys" of a command (children included) on stdout.
timed() {
    local TIMEFORMAT='%R %U %S'
    { time "$@" >/dev/null 2>&1; } 2>&1
}

field() { sed -n "s/.*$1=\([^ ]*\).*/\1/p"; }

check_copy() {
    cmp -s "$1" "$2" || { echo "download bench: $2 differs from the server's file" >&2; exit 1; }
}

# Prints "best_curl_wall curl_cpu best_manager_wall manager_cpu" over two alternating rounds, after
# checking every copy against the server's file. $1: files to fetch, by name.
compare() {
    local names=("$@") args=() name round line best_c="" best_cc="" best_m="" best_mc=""
    for name in "${names[@]}"; do args+=("$base/$name" "$(stat -c %s "$work/www/$name")"); done
    for round in 1 2; do
        read -r wall user sys < <(timed parallel_curl "${names[@]}")
        for name in "${names[@]}"; do check_copy "$work/www/$name" "$work/out/$name.curl"; done
        rm -f "$work"/out/*.curl
        sync
        if [ -z "$best_c" ] || awk -v a="$wall" -v b="$best_c" 'BEGIN { exit !(a < b) }'; then
            best_c="$wall"
            best_cc="$(awk -v u="$user" -v s="$sys" 'BEGIN { print u + s }')"
        fi

        line="$("$host" "$work/out/core" -1 0 "${args[@]}")"
        for name in "${names[@]}"; do check_copy "$work/www/$name" "$work/out/core/$name"; done
        rm -rf "$work/out/core"
        sync
        wall="$(echo "$line" | field seconds)"
        if [ -z "$best_m" ] || awk -v a="$wall" -v b="$best_m" 'BEGIN { exit !(a < b) }'; then
            best_m="$wall"
            best_mc="$(echo "$line" | field cpu)"
        fi
    done
    echo "$best_c $best_cc $best_m $best_mc"
}

# One curl process per file, all at once.
parallel_curl() {
    local name
    for name in "$@"; do
        curl -s -o "$work/out/$name.curl" "$base/$name" &
    done
    wait
}

report() {
    awk -v size="$1" -v label="$2" -v cw="$3" -v cc="$4" -v mw="$5" -v mc="$6" 'BEGIN {
        c = size / 1048576 / cw; m = size / 1048576 / mw
        printf "%-9s %8.1f MB/s  %6.2f CPU s\n", label, c, cc
        printf "manager   %8.1f MB/s  %6.2f CPU s\n", m, mc
        printf "ratio     %8.2f (manager/curl throughput)  %.2f (manager/curl CPU)\n", m / c, mc / cc
    }'
}

echo "-- one 1 GiB file (MB = 2^20 bytes; best of two rounds each)"
report "$big_size" "curl" $(compare big.bin)

echo "-- five 200 MiB files at once"
report "$((5 * part_size))" "5 x curl" $(compare part1.bin part2.bin part3.bin part4.bin part5.bin)

echo "-- limit 10240 KB/s held for 10 s"
m_line="$("$host" "$work/out/core" 10240 10 "$base/part1.bin" "$part_size")"
rm -rf "$work/out/core"
awk -v avg="$(echo "$m_line" | field avgkbps)" -v hi="$(echo "$m_line" | field max1skbps)" \
    -v lo="$(echo "$m_line" | field min1skbps)" 'BEGIN {
    printf "average  %8.1f KB/s (%+.2f%% of the limit)\n", avg, (avg / 10240 - 1) * 100
    printf "1 s max  %8.1f KB/s (%+.2f%%), 1 s min %.1f KB/s (%+.2f%%)\n", hi, (hi / 10240 - 1) * 100, lo, (lo / 10240 - 1) * 100
}'
