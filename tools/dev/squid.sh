# shellcheck shell=bash
# A private squid on a free loopback port that wants an account. Sourced, behind nginx.sh.

# start_squid FOLDER USER PASSWORD NAME...: a proxy that serves whoever has the account, until stop_squid FOLDER.
# It knows each NAME as this machine, since a client reaches the machine's usual names without a proxy.
# FOLDER/squid.port then holds its port.
start_squid() {
    local folder=$1 user=$2 password=$3 left=5 name
    shift 3
    chmod 777 "$folder" # started by root it runs as somebody else
    printf '%s:%s\n' "$user" "$(openssl passwd -apr1 "$password")" > "$folder/squid.users"
    for name in "$@"; do
        echo "127.0.0.1 $name"
    done > "$folder/squid.hosts"
    while ((left-- > 0)); do
        shuf -i 20000-32000 -n 1 > "$folder/squid.port"
        squid_configuration "$folder" > "$folder/squid.conf"
        rm -f "$folder/squid.out"
        mkfifo "$folder/squid.out"
        squid -N -d 1 -f "$folder/squid.conf" > /dev/null 2> "$folder/squid.out" &
        echo $! > "$folder/squid.pid"
        # It tells when it listens; when it can't, it ends, and with it the pipe.
        if grep -m 1 'Accepting HTTP Socket connections' < "$folder/squid.out" > "$folder/squid.start" &&
            answers "$(cat "$folder/squid.port")"; then
            return 0
        fi
        stop_squid "$folder"
    done
    cat "$folder/squid.log" >&2
    return 1
}

squid_configuration() {
    cat << END
http_port 127.0.0.1:$(cat "$1/squid.port")
auth_param basic program $(squid_helper basic_ncsa_auth) $1/squid.users
auth_param basic children 1 startup=1
auth_param basic realm squid
acl known proxy_auth REQUIRED
http_access allow known
http_access deny all
hosts_file $1/squid.hosts
cache deny all
pid_filename none
cache_log $1/squid.log
access_log stdio:$1/squid.access
coredump_dir $1
pinger_enable off
shutdown_lifetime 0 seconds
visible_hostname squid.test
END
}

squid_helper() {
    find /usr/lib/squid /usr/libexec/squid /usr/lib64/squid -name "$1" 2> /dev/null | head -1
}

stop_squid() {
    local pid
    pid=$(cat "$1/squid.pid" 2> /dev/null) || return 0
    rm -f "$1/squid.pid"
    kill "$pid" 2> /dev/null || true
    wait "$pid" || true # what a signal ended
}
