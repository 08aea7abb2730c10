# shellcheck shell=bash
# What the checks of the command have in common. Sourced with the check's own arguments, the first of which is the
# command; $work becomes a folder of the check's own, with an nginx in it if it starts one.
# shellcheck disable=SC2034 # names that the checks use

# shellcheck source=tools/dev/nginx.sh
. "$(dirname "${BASH_SOURCE[0]}")/../../tools/dev/nginx.sh"
tessel=$(realpath "$1")
work=$(mktemp -d)
trap 'stop_nginx "$work"; rm -rf "$work"' EXIT
wrong=0
# Nothing of the user's own: no accounts, no proxies.
export TESSEL_REGISTRY=$work/registry.db GSETTINGS_BACKEND=memory
unset http_proxy https_proxy HTTPS_PROXY all_proxy ALL_PROXY no_proxy NO_PROXY

# expect CODE ARGUMENT...: runs the command; its output is in $work/out and $work/err.
expect() {
    local wanted=$1 code=0
    shift
    "$tessel" "$@" > "$work/out" 2> "$work/err" || code=$?
    [ "$code" = "$wanted" ] || complain "exit code $code, not $wanted: tessel $*"
}
complain() {
    echo "WRONG: $*"
    head -c 300 "$work/out" "$work/err"
    wrong=1
}
out_has() { grep -qF -- "$1" "$work/out" || complain "no \"$1\" in the output"; }
err_has() { grep -qF -- "$1" "$work/err" || complain "no \"$1\" in the errors"; }
same() { cmp "$1" "$2" || complain "$1 and $2 differ"; }
