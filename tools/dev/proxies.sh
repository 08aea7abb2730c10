# shellcheck shell=bash
# Private proxies on free loopback ports that want an account. Sourced, behind nginx.sh.

# start_squid FOLDER USER PASSWORD NAME...: a squid that serves whoever has the account, until stop_proxy FOLDER.
# It knows each NAME as this machine, since a client reaches the machine's usual names without a proxy.
# FOLDER/proxy.port then holds its port.
start_squid() {
    local folder=$1 name
    printf '%s:%s\n' "$2" "$(openssl passwd -apr1 "$3")" > "$folder/users"
    for name in "${@:4}"; do
        echo "127.0.0.1 $name"
    done > "$folder/hosts"
    start_proxy "$folder" squid_configuration 'Accepting HTTP Socket connections' \
        squid -N -d 1 -f "$folder/proxy.conf"
}

# start_tinyproxy FOLDER USER PASSWORD: the same by tinyproxy, which knows no names of its own.
start_tinyproxy() {
    echo "BasicAuth $2 $3" > "$1/users"
    start_proxy "$1" tinyproxy_configuration 'Accepting connections' tinyproxy -d -c "$1/proxy.conf"
}

# start_proxy FOLDER CONFIGURATION READY COMMAND...: CONFIGURATION FOLDER PORT writes what COMMAND reads; a line with
# READY tells that it listens.
start_proxy() {
    local folder=$1 configuration=$2 ready=$3 left=5 port
    shift 3
    chmod 777 "$folder" # started by root it may run as somebody else
    while ((left-- > 0)); do
        port=$(shuf -i 20000-32000 -n 1)
        echo "$port" > "$folder/proxy.port"
        "$configuration" "$folder" "$port" > "$folder/proxy.conf"
        : > "$folder/proxy.log"
        "$@" > "$folder/proxy.log" 2>&1 &
        echo $! > "$folder/proxy.pid"
        # Another process may have taken the port meanwhile: then it ends, and the log with it.
        if grep -qm 1 "$ready" < <(tail -n +1 -F --pid=$! "$folder/proxy.log" 2> /dev/null) && answers "$port"; then
            return 0
        fi
        stop_proxy "$folder"
    done
    cat "$folder/proxy.log" >&2
    return 1
}

squid_configuration() {
    cat << END
http_port 127.0.0.1:$2
auth_param basic program $(squid_helper basic_ncsa_auth) $1/users
auth_param basic children 1 startup=1
auth_param basic realm squid
acl known proxy_auth REQUIRED
http_access allow known
http_access deny all
hosts_file $1/hosts
cache deny all
pid_filename none
cache_log $1/cache.log
access_log stdio:$1/proxy.access
coredump_dir $1
pinger_enable off
shutdown_lifetime 0 seconds
visible_hostname squid.test
END
}

squid_helper() {
    find /usr/lib/squid /usr/libexec/squid /usr/lib64/squid -name "$1" 2> /dev/null | head -1
}

tinyproxy_configuration() {
    printf 'Port %s\nListen 127.0.0.1\nTimeout 60\nMaxClients 10\nLogLevel Info\n' "$2"
    cat "$1/users"
}

stop_proxy() {
    local pid
    pid=$(cat "$1/proxy.pid" 2> /dev/null) || return 0
    rm -f "$1/proxy.pid"
    kill "$pid" 2> /dev/null || true
    wait "$pid" || true # what a signal ended
}
