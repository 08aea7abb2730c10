#!/usr/bin/env bash
# transfer_check.sh TESSEL: fetch, download and upload against a real server and a real proxy: each kind of body to
# the byte, what an interrupted download leaves and how it goes on, and exit codes. ON_WINDOWS=1 leaves out what the
# options, the environment and the signals of Linux are needed for.
set -euo pipefail
# shellcheck source=tests/command/expect.sh
. "$(dirname "$0")/expect.sh"

certificate() {
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=localhost -keyout "$work/key.pem" \
        -out "$work/ca.pem" -addext subjectAltName=DNS:localhost,IP:127.0.0.1 2> "$work/openssl"
}

mkdir -p "$work/www/inbox"
chmod 777 "$work/www/inbox"
head -c 3000000 /dev/urandom > "$work/www/file.bin"
seq 200000 > "$work/www/lines.txt"
: > "$work/www/empty"
echo "user:$(openssl passwd -apr1 pass)" > "$work/accounts"
certificate
# shellcheck disable=SC2016 # nginx's variables
start_nginx "$work" 'server {
    listen 127.0.0.1:@PORT@;
    listen 127.0.0.1:@PORT2@ ssl;
    ssl_certificate @FOLDER@/ca.pem;
    ssl_certificate_key @FOLDER@/key.pem;
    root @FOLDER@/www;
    client_max_body_size 0;
    types { text/plain txt; }
    location /slow/ { alias @FOLDER@/www/; limit_rate 2m; }
    location /chunked/ { alias @FOLDER@/www/; ssi on; ssi_types *; }
    location /packed/ { alias @FOLDER@/www/; gzip on; gzip_types text/plain; }
    location /whole/ { alias @FOLDER@/www/; max_ranges 0; }
    location /liar/ {
        alias @FOLDER@/www/;
        if ($http_range) {
            add_header Content-Range "bytes 7-9/10";
            return 206 "abc";
        }
    }
    location /stuck/ { alias @FOLDER@/www/; limit_rate 1; }
    location /moved { return 304; }
    location /inbox/ { dav_methods PUT; }
    location /vault/ { alias @FOLDER@/www/; auth_basic "the vault"; auth_basic_user_file @FOLDER@/accounts; }
}
server {
    listen 127.0.0.1:@PORT4@ ssl;
    ssl_certificate @FOLDER@/ca.pem;
    ssl_certificate_key @FOLDER@/key.pem;
    ssl_protocols TLSv1.2;
    root @FOLDER@/www;
}
server {
    listen 127.0.0.1:@PORT3@;
    location / {
        if ($http_proxy_authorization != "Basic YW5uOnNlY3JldA==") {
            add_header Proxy-Authenticate "Basic realm=\"x\"" always;
            return 407;
        }
        proxy_pass http://127.0.0.1:@PORT@$request_uri;
    }
}'
port() { sed -n "$1p" "$work/ports"; }
site=http://127.0.0.1:$(port 1)
secure=https://127.0.0.1:$(port 2)
proxy=127.0.0.1:$(port 3)
file=$work/www/file.bin
got=$work/got

on_linux() { [ -z "${ON_WINDOWS:-}" ]; }
nothing_left() {
    if [ -e "$got" ] || [ -e "$got.part" ] || [ -e "$got.part.from" ]; then
        complain "something is left: $(ls "$work")"
    fi
    rm -f "$got" "$got".part*
}

# begin_download URL ARGUMENT...: runs it in the background until a part of the file is there; its process is $running.
begin_download() {
    rm -f "$got"*
    # The shell makes its background processes deaf to interrupts.
    env --default-signal=INT "$tessel" download "$@" "$got" > "$work/out" 2> "$work/err" &
    running=$!
    until [ -s "$got.part" ] || ! kill -0 "$running"; do :; done
}
ends_with() {
    local code=0
    wait "$running" || code=$?
    [ "$code" = "$1" ] || complain "exit code $code, not $1"
}

# Bad usage.
for arguments in "download $site" "download $site/empty $work" "fetch --header nocolon $site" \
    "fetch --timeout 0 $site"; do
    # shellcheck disable=SC2086 # a list of words
    expect 2 $arguments
done

# Each kind of body.
expect 0 fetch "$site/file.bin"
same "$work/out" "$file"
err_has 'HTTP status 200, direct'
expect 3 fetch --json "$site/none"
out_has '"error":0,"route":"direct","attempts":[{"route":"direct","error":0}]}'
expect 0 download "$site/file.bin" "$got"
same "$got" "$file"
out_has ': 3000000 bytes, direct'
expect 0 download "$site/chunked/lines.txt" "$got"
same "$got" "$work/www/lines.txt"
expect 0 download --gzip "$site/packed/lines.txt" "$got"
same "$got" "$work/www/lines.txt"
grep -q '/packed/lines.txt HTTP/1.1" 200 [0-9]\{6\} ' "$work/access.log" || complain "it wasn't compressed"
expect 0 download "$site/empty" "$got"
same "$got" "$work/www/empty"
rm "$got"
expect 1 download "$secure/file.bin" "$got"
err_has 'trusts'
nothing_left
if on_linux; then
    expect 0 download --ca-file "$work/ca.pem" "$secure/file.bin" "$got"
    same "$got" "$file"
    expect 0 download --ca-file "$work/ca.pem" "https://127.0.0.1:$(port 4)/file.bin" "$got"
    same "$got" "$file"
    vault=${secure/127/user:pass@127}/vault
    SSL_CERT_FILE=$work/ca.pem expect 0 get --parallel 2 "$vault/lines.txt" "$vault/lines.txt" "$vault/lines.txt"
    [ "$(wc -l < "$work/out")" = 600000 ] || complain "an account opens it for each"
    SSL_CERT_FILE=$work/ca.pem expect 3 get "${secure/127/user:wrong@127}/vault/lines.txt"
    err_has 'HTTP status 401'
fi
expect 0 upload "$file" "$site/inbox/file.bin"
same "$work/www/inbox/file.bin" "$file"
expect 3 upload "$file" "$site/none/file.bin"
expect 1 upload "$work/none" "$site/inbox/none"

# A login at a proxy: from its URL, then from whoever is asked; nobody is.
if on_linux; then
    export http_proxy=http://ann:secret@$proxy
    expect 0 download http://far.test/file.bin "$got"
    same "$got" "$file"
    out_has "proxy $proxy"
    # shellcheck disable=SC2016 # the words of a program
    printf '#!/bin/sh\ncase $1 in *[Pp]assword*) echo secret;; *) echo ann;; esac\n' > "$work/ask"
    chmod +x "$work/ask"
    export http_proxy=http://$proxy
    TESSEL_ASKPASS=$work/ask expect 0 fetch http://far.test/file.bin
    same "$work/out" "$file"
    TESSEL_ASKPASS='' SSH_ASKPASS='' expect 3 fetch http://far.test/file.bin
    err_has 'TESSEL_ASKPASS'
    unset http_proxy
fi

# Interrupted, it goes on later; a file that has changed begins anew, and so does one that can't be gone on with.
if on_linux; then
    begin_download "$site/slow/file.bin"
    kill -INT "$running"
    ends_with 130
    err_has 'the same command goes on'
    [ ! -e "$got" ] || complain "half a file under the final name"
    left=$(stat -c %s "$got.part")
    expect 0 download --json "$site/slow/file.bin" "$got" --timeout 10
    same "$got" "$file"
    out_has "\"resumed\":$left,"
    grep -q '/slow/file.bin HTTP/1.1" 206 ' "$work/access.log" || complain "it didn't go on"
    begin_download "$site/slow/file.bin"
    kill -TERM "$running"
    ends_with 143
    head -c 3000000 /dev/urandom > "$work/other"
    mv "$work/other" "$file"
    touch -d 2020-01-01 "$file"
    expect 0 download "$site/slow/file.bin" "$got"
    same "$got" "$file"
fi
cp "$file" "$got.part"
printf '%s\n"%x-%x"\n' "$site/file.bin" "$(stat -c %Y "$file")" 3000000 > "$got.part.from"
expect 0 download "$site/file.bin" "$got" # it was complete
same "$got" "$file"
tail -1 "$work/access.log" | grep -q '" 416 ' || complain "it was fetched again"
for folder in whole liar; do
    printf 'x' > "$got.part"
    printf '%s\n"%x-%x"\n' "$site/$folder/file.bin" "$(stat -c %Y "$file")" 3000000 > "$got.part.from"
    expect 0 download "$site/$folder/file.bin" "$got"
    same "$got" "$file"
done

# A server that goes away in the middle, and comes back.
if on_linux; then
    begin_download "$site/slow/file.bin"
    stop_nginx "$work"
    ends_with 1
    err_has ' of 3000000 bytes came'
    nginx -p "$work" -e "$work/error.log" -c "$work/nginx.conf"
    expect 0 download "$site/file.bin" "$got.other"
    begin_download "$site/slow/file.bin"
    kill -INT "$running"
    ends_with 130
    expect 0 download --no-resume "$site/file.bin" "$got"
    out_has ': 3000000 bytes, direct'
    same "$got" "$file"
fi

# Nothing half-made is left of what can't be done.
rm -f "$got"
expect 3 download "$site/none" "$got"
nothing_left
expect 1 download "$site/moved" "$got"
err_has 'HTTP status 304'
nothing_left
echo mine > "$got.part" # of another URL, or nobody's
expect 3 download "$site/none" "$got"
[ "$(cat "$got.part")" = mine ] || complain "a part that isn't the download's own is gone"
rm "$got.part"
expect 1 download "$site/file.bin" "$work/none/got"
err_has "can't be written"
ln -s /dev/full "$got.part"
expect 1 download "$site/file.bin" "$got"
err_has 'No space left'
[ ! -e "$got" ] || complain "half a file under the final name"
rm -f "$got".part*
expect 1 download "http://127.0.0.1:$(closed_port)/" "$got"
err_has '12029: '
nothing_left
if on_linux; then # Wine doesn't break off a wait
    expect 1 fetch --timeout 1 "$site/stuck/file.bin"
    err_has 'not a byte moved for 1 s'
fi
exit "$wrong"
