#!/usr/bin/env bash
# services_check.sh TESSEL SERVICES GSOAP: services on toolkits of other makers understand the message, and their answers
# are understood. SERVICES is the folder with them; GSOAP the one on gSOAP, which is there only where its toolkit is.
set -euo pipefail
# shellcheck source=tests/command/expect.sh
. "$(dirname "$0")/../command/expect.sh"
services=$(realpath "$2")
service=
trap '[ -z "$service" ] || kill "$service"; rm -rf "$work"' EXIT

# check_service PATH COMMAND...: the service that COMMAND starts, and which says where it listens.
check_service() {
    local address call
    : > "$work/log"
    "${@:2}" > "$work/log" 2>&1 &
    service=$!
    address=$(grep -m 1 -o 'http://[^/)]*' < <(tail -n +1 -F --pid="$service" "$work/log"))
    call=(config --json --user Ann --client-name app --client-version 1.2 --namespace urn:tessel-test
        --action 'urn:tessel-test#getClientConfiguration' "$address$1")
    echo 'p<&>w' | expect 0 "${call[@]}"
    printf '%s\n' '{"name":"screen","value":"ann"}' '{"name":"client","value":"app 1.2"}' \
        '{"name":"grüße","value":"<&> €"}' | cmp - "$work/out" || complain "not these pairs: ${*:2}"
    echo wrong | expect 1 "${call[@]}" --trace
    err_has 'Error: Soap Fault: ' # with status 500
    err_has ': wrong password'
    kill "$service"
    service=
}

if command -v php > /dev/null && php -m | grep -qx soap; then
    check_service /encoded php -S 127.0.0.1:0 "$services/service.php"
    check_service /literal php -S 127.0.0.1:0 "$services/service.php"
fi
if perl -MSOAP::Lite -e 1 2> /dev/null; then
    check_service / perl "$services/service.pl"
fi
if [ -x "$3" ]; then
    check_service / "$3"
fi
if [ ! -e "$work/log" ]; then
    echo "no toolkit for services is installed"
    exit 77
fi
exit "$wrong"
