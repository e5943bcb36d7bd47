#!/usr/bin/env bash
# Download benchmark: the download manager against curl, both fetching from a local nginx.
#   bench/download.sh <build-dir>
# Makes its data in a temporary folder, runs nginx there as the current user on a free port, and
# removes everything on exit, also when a step fails.
set -euo pipefail

build="$(cd "${1:-build}" && pwd)"
host="$build/bench/download"
nginx_bin="${NGINX:-/usr/sbin/nginx}"
source "$(dirname "$0")/../scripts/require.sh"
require_built "download bench" "$host"
require_tools "download bench" curl "$nginx_bin"

# free_port comes from the private nginx helpers shared with the demo.
source "$(dirname "$0")/../scripts/nginx.sh"

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

rounds="${ROUNDS:-7}"

# One round of a comparison: curl, then the manager, or the other way round on even rounds so that
# neither always meets the warmer cache. Prints "curl_mibps curl_cpu manager_mibps manager_cpu
# manager_peak_mib" after checking every copy against the server's file. $1: round, then file names.
round() {
    local r="$1"; shift
    local names=("$@") args=() name total=0 c_line="" m_line="" step
    for name in "${names[@]}"; do
        args+=("$base/$name" "$(stat -c %s "$work/www/$name")")
        total=$((total + $(stat -c %s "$work/www/$name")))
    done
    for step in $( [ $((r % 2)) -eq 1 ] && echo "curl manager" || echo "manager curl" ); do
        if [ "$step" = curl ]; then
            c_line="$(timed parallel_curl "${names[@]}")"
            for name in "${names[@]}"; do check_copy "$work/www/$name" "$work/out/$name.curl"; done
            rm -f "$work"/out/*.curl
        else
            m_line="$("$host" "$work/out/core" -1 0 "${args[@]}")"
            for name in "${names[@]}"; do check_copy "$work/www/$name" "$work/out/core/$name"; done
            rm -rf "$work/out/core"
        fi
        sync
    done
    read -r wall user sys <<<"$c_line"
    awk -v t="$total" -v cw="$wall" -v cu="$user" -v cs="$sys" -v mw="$(echo "$m_line" | field seconds)" \
        -v mc="$(echo "$m_line" | field cpu)" -v mp="$(echo "$m_line" | field peakmib)" \
        'BEGIN { printf "%.1f %.2f %.1f %.2f %.1f\n", t / 1048576 / cw, cu + cs, t / 1048576 / mw, mc, mp }'
}

# One curl process per file, all at once.
parallel_curl() {
    local name
    for name in "$@"; do
        curl -s -o "$work/out/$name.curl" "$base/$name" &
    done
    wait
}

# Runs the rounds of one comparison and prints each round, then the medians, the spreads (lowest and
# highest round), the median of the per-round ratios and the manager's highest peak memory.
compare() {
    local r
    for r in $(seq "$rounds"); do round "$r" "$@"; done | awk '
        function median(a, n,   i, j, t) {
            for (i = 2; i <= n; i++) for (j = i; j > 1 && a[j - 1] > a[j]; j--) { t = a[j]; a[j] = a[j - 1]; a[j - 1] = t }
            return n % 2 ? a[(n + 1) / 2] : (a[n / 2] + a[n / 2 + 1]) / 2
        }
        function lo(a, n,   i, m) { m = a[1]; for (i = 2; i <= n; i++) if (a[i] < m) m = a[i]; return m }
        function hi(a, n,   i, m) { m = a[1]; for (i = 2; i <= n; i++) if (a[i] > m) m = a[i]; return m }
        {
            n++; c[n] = $1; cc[n] = $2; m[n] = $3; mc[n] = $4; mp[n] = $5; ratio[n] = $3 / $1
            printf "  round %d: curl %7.1f MB/s  manager %7.1f MB/s  ratio %.2f  manager peak %.1f MiB\n", n, $1, $3, $3 / $1, $5
        }
        END {
            printf "curl      median %7.1f MB/s  spread %7.1f .. %7.1f  CPU %.2f s\n", median(c, n), lo(c, n), hi(c, n), median(cc, n)
            printf "manager   median %7.1f MB/s  spread %7.1f .. %7.1f  CPU %.2f s\n", median(m, n), lo(m, n), hi(m, n), median(mc, n)
            printf "ratio     median of per-round ratios %.2f (spread %.2f .. %.2f)\n", median(ratio, n), lo(ratio, n), hi(ratio, n)
            printf "memory    manager peak %.1f MiB (highest of %d rounds, %.1f MB)\n", hi(mp, n), n, hi(mp, n) * 1.048576
        }'
}

echo "-- one 1 GiB file (MB = 2^20 bytes; $rounds rounds, curl and manager interleaved)"
compare big.bin

echo "-- five 200 MiB files at once against five curl processes"
compare part1.bin part2.bin part3.bin part4.bin part5.bin

echo "-- limit 10240 KB/s held for 10 s"
m_line="$("$host" "$work/out/core" 10240 10 "$base/part1.bin" "$part_size")"
rm -rf "$work/out/core"
echo "peak memory $(echo "$m_line" | field peakmib) MiB"
awk -v avg="$(echo "$m_line" | field avgkbps)" -v hi="$(echo "$m_line" | field max1skbps)" \
    -v lo="$(echo "$m_line" | field min1skbps)" 'BEGIN {
    printf "average  %8.1f KB/s (%+.2f%% of the limit)\n", avg, (avg / 10240 - 1) * 100
    printf "1 s max  %8.1f KB/s (%+.2f%%), 1 s min %.1f KB/s (%+.2f%%)\n", hi, (hi / 10240 - 1) * 100, lo, (lo / 10240 - 1) * 100
}'
