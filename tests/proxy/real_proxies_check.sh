#!/usr/bin/env bash
# real_proxies_check.sh TESSEL SERVICES: requests and SOAP calls through real proxies that want an account: asked for
# once, again when it was wrong, and not at all where one is kept, in a new process too. SERVICES is the folder of the
# SOAP services.
set -euo pipefail
# shellcheck source=tests/command/expect.sh
. "$(dirname "$0")/../command/expect.sh"
# shellcheck source=tools/dev/proxies.sh
. "$(dirname "$0")/../../tools/dev/proxies.sh"
services=$(realpath "$2")
for program in squid nginx; do
    command -v "$program" > /dev/null || { echo "$program isn't installed" && exit 77; }
done
php=
trap 'stop_proxy "$work"; stop_nginx "$work"; [ -z "$php" ] || kill "$php"; rm -rf "$work"' EXIT
# expect CODE ARGUMENT...: runs the command, which starts with an empty list of questions; $work/asked holds them.
expect() {
    local wanted=$1 code=0
    shift
    : > "$work/asked"
    "$tessel" "$@" > "$work/out" 2> "$work/err" || code=$?
    [ "$code" = "$wanted" ] || complain "exit code $code, not $wanted: tessel $*"
}
out_is() { [ "$(cat "$work/out")" = "$1" ] || complain "the output isn't \"$1\""; }
asked() { [ "$(wc -l < "$work/asked")" = "$1" ] || complain "asked $(wc -l < "$work/asked") times, not $1"; }

# Answers the questions with the lines of $work/answers, in turn.
cat > "$work/askpass" << END
#!/bin/sh
echo "\$1" >> $work/asked
sed -n "\$(wc -l < $work/asked)p" $work/answers
END
chmod 755 "$work/askpass"
openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/key.pem" -out "$work/ca.pem" -days 2 \
    -subj /CN=inner.test -addext subjectAltName=DNS:inner.test 2> /dev/null
mkdir "$work/www"
echo one > "$work/www/1"
echo two > "$work/www/2"
start_nginx "$work" 'server { listen 127.0.0.1:@PORT@; root @FOLDER@/www; }
server { listen 127.0.0.1:@PORT2@ ssl; ssl_certificate @FOLDER@/ca.pem; ssl_certificate_key @FOLDER@/key.pem;
    root @FOLDER@/www; }'
export SSL_CERT_FILE=$work/ca.pem TESSEL_ASKPASS=$work/askpass

# check_proxy HOST PASSWORD [WRONG...]: what the proxy that runs does for requests to HOST with ann's account, of which
# the user gives the passwords WRONG first.
check_proxy() {
    local plain secure url
    place=127.0.0.1:$(cat "$work/proxy.port")
    plain=http://$1:$(sed -n 1p "$work/ports")
    secure=https://$1:$(sed -n 2p "$work/ports")
    export http_proxy=http://$place https_proxy=http://$place

    # The second request knows the right one; a new process doesn't.
    printf 'ann\n%s\n' "${@:3}" "$2" > "$work/answers"
    for url in "$plain" "$secure"; do
        expect 0 get --parallel 1 "$url/1" "$url/2"
        out_is $'one\ntwo'
        asked $((2 * ($# - 1)))
    done
    : > "$work/answers" # from here on nobody answers
    for url in "$plain/1" "$secure/1"; do
        expect 3 get "$url"
        grep -q 407 "$work/err" || complain "no 407"
    done
    # One that stands beside the proxy in the environment.
    http_proxy="http://ann:$2@$place" expect 0 get "$plain/1"
    out_is one
    asked 0
    # A kept one serves every new process, until it is forgotten.
    echo "$2" | expect 0 accounts add --user ann "$place"
    for url in "$plain/2" "$secure/2"; do
        expect 0 get "$url"
        out_is two
        asked 0
    done
}
# forget_account HOST: and nobody is let through any more.
forget_account() {
    expect 0 accounts forget "$place"
    expect 3 get "http://$1:$(sed -n 1p "$work/ports")/1"
}

start_squid "$work" ann p-w.d inner.test
check_proxy inner.test p-w.d wrong
# SOAP calls take the kept account, too.
if command -v php > /dev/null && php -m | grep -qx soap; then
    php -S 127.0.0.1:0 "$services/service.php" > "$work/php.log" 2>&1 &
    php=$!
    port=$(grep -m 1 -o 'http://[^)]*' < <(tail -n +1 -F --pid="$php" "$work/php.log") | cut -d : -f 3)
    call=(config --user Ann --namespace urn:tessel-test --action 'urn:tessel-test#getClientConfiguration'
        "http://inner.test:$port/encoded")
    echo 'p<&>w' | expect 0 "${call[@]}"
    grep -q '^screen *ann$' "$work/out" || complain "no answer of the SOAP service"
    grep -q "POST http://inner.test:$port/encoded ann" "$work/proxy.access" || complain "SOAP went past the proxy"
fi
forget_account inner.test
if [ -n "$php" ]; then
    echo 'p<&>w' | expect 1 "${call[@]}"
    grep -q 'the proxy wants an account' "$work/err" || complain "no hint at the proxy"
fi
stop_proxy "$work"

if command -v tinyproxy > /dev/null; then
    # It refuses a wrong one as a server would, with 401.
    start_tinyproxy "$work" ann p-w.d
    check_proxy 0.0.0.0 p-w.d # this machine by a name that isn't bypassed
    forget_account 0.0.0.0
fi
exit "$wrong"
