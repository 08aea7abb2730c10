#!/usr/bin/env bash
# check.sh FIRST_REQUEST GLIB_HOST: both programs get a page from a server of their own.
set -euo pipefail
# shellcheck source=tools/dev/nginx.sh
. "$(dirname "$0")/../tools/dev/nginx.sh"
work=$(mktemp -d)
trap 'stop_nginx "$work"; rm -rf "$work"' EXIT
start_page_server "$work"
site=http://127.0.0.1:$(head -1 "$work/ports")

says() {
    local wanted=$1 said
    shift
    said=$("$@")
    echo "$said"
    grep -qx "$wanted" <<< "$said"
}
says 'arrived: status 200, 12 characters' "$1" "$site/page.txt"
says "status 200, 12 bytes, on the loop's thread" "$2" "$site/page.txt"
