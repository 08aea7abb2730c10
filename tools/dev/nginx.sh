# shellcheck shell=bash
# A private nginx on free loopback ports. Sourced.

# start_nginx FOLDER SERVERS: serves the server blocks in the text SERVERS until stop_nginx FOLDER, with
# @FOLDER@ and @PORT@, @PORT2@ ... in it filled in. FOLDER/ports then holds the port numbers, one a line.
start_nginx() {
    local folder=$1 servers=$2 count left=5
    count=$(grep -o '@PORT[0-9]*@' <<< "$servers" | sort -u | wc -l)
    chmod 755 "$folder" # its workers may run as somebody else
    while ((left-- > 0)); do
        # Below the range that the system hands out itself; another process may still be quicker.
        shuf -i 20000-32000 -n "$count" > "$folder/ports"
        configuration "$folder" "$servers" > "$folder/nginx.conf"
        # It returns when its sockets listen.
        if nginx -p "$folder" -e "$folder/error.log" -c "$folder/nginx.conf" 2> "$folder/start.log"; then
            answers "$(head -1 "$folder/ports")" && return 0
        fi
        grep -q 'Address already in use' "$folder/start.log" || break
    done
    cat "$folder/start.log" >&2
    return 1
}

configuration() {
    local folder=$1 script="s|@FOLDER@|$1|g" number='' port
    while read -r port; do
        script+=";s|@PORT$number@|$port|g"
        number=$((${number:-1} + 1))
    done < "$folder/ports"
    sed "$script" << END
worker_processes 1;
pid $folder/nginx.pid;
error_log $folder/error.log;
events { }
http {
    access_log $folder/access.log;
    client_body_temp_path $folder/temp_body;
    proxy_temp_path $folder/temp_proxy;
    fastcgi_temp_path $folder/temp_fastcgi;
    uwsgi_temp_path $folder/temp_uwsgi;
    scgi_temp_path $folder/temp_scgi;
    $2
}
END
}

# start_page_server FOLDER: serves FOLDER/www, with one page of 12 bytes in it, page.txt.
start_page_server() {
    mkdir -p "$1/www"
    printf 'Hello there\n' > "$1/www/page.txt"
    start_nginx "$1" 'server { listen 127.0.0.1:@PORT@; root @FOLDER@/www; }'
}

answers() {
    (exec 3<> "/dev/tcp/127.0.0.1/$1") 2> /dev/null
}

# A port that was free a moment ago.
closed_port() {
    local port
    port=$(shuf -i 20000-32000 -n 1)
    while answers "$port"; do
        port=$(shuf -i 20000-32000 -n 1)
    done
    echo "$port"
}

# Waits until the server has gone, so that its folder can be removed.
stop_nginx() {
    local folder=$1 pid
    pid=$(cat "$folder/nginx.pid" 2> /dev/null) || return 0
    kill "$pid"
    tail -s 0.02 --pid="$pid" -f /dev/null
}
