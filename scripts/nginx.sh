# Sourced by the demo and the benchmarks: a private nginx serving a folder on 127.0.0.1.
#   start_nginx ROOT WORKDIR   starts it on a free port; sets nginx_port, nginx_pid, nginx_log
#   stop_nginx                 ends it (safe to call twice, and when it never started)
# Its configuration, pid file and logs live in WORKDIR; requests are logged as
# "METHOD path status bytes-sent".
nginx_pid=""
nginx_port=""
nginx_log=""

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

start_nginx() {
    local root="$1" dir="$2" program="${NGINX:-/usr/sbin/nginx}"
    [ -x "$program" ] || { echo "nginx not found at $program" >&2; return 1; }
    mkdir -p "$dir"
    nginx_port="$(free_port)"
    nginx_log="$dir/access.log"
    cat > "$dir/nginx.conf" <<CONF
daemon off;
master_process off;
worker_processes 1;
pid $dir/nginx.pid;
error_log $dir/error.log;
events { worker_connections 64; }
http {
    log_format transfer escape=none '\$request_method \$uri \$status \$body_bytes_sent';
    access_log $nginx_log transfer;
    sendfile on;
    tcp_nopush on;
    default_type application/octet-stream;
    client_body_temp_path $dir/body;
    proxy_temp_path $dir/proxy;
    fastcgi_temp_path $dir/fastcgi;
    uwsgi_temp_path $dir/uwsgi;
    scgi_temp_path $dir/scgi;
    server {
        listen 127.0.0.1:$nginx_port;
        root $root;
    }
}
CONF
    : > "$nginx_log"
    # Descriptors a caller holds (the build lock of flock, for one) are not handed on: a server left
    # running would keep them.
    "$program" -p "$dir" -e "$dir/error.log" -c "$dir/nginx.conf" 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&- &
    nginx_pid=$!
    local _
    for _ in $(seq 50); do
        (exec 3<>"/dev/tcp/127.0.0.1/$nginx_port") 2>/dev/null && return 0
        sleep 0.1
    done
    echo "nginx did not start; see $dir/error.log" >&2
    return 1
}

stop_nginx() {
    if [ -n "$nginx_pid" ] && kill -0 "$nginx_pid" 2>/dev/null; then
        kill "$nginx_pid" 2>/dev/null || true
        wait "$nginx_pid" 2>/dev/null || true
    fi
    nginx_pid=""
}

# Bytes the server sent in the log lines after line $1.
bytes_sent_since() {
    tail -n +"$(($1 + 1))" "$nginx_log" | awk '{ sum += $4 } END { printf "%d\n", sum }'
}
