# shellcheck shell=bash
# What the checks of the command have in common. Sourced; $tessel is the command, $work a folder of the check's own.
# shellcheck disable=SC2154,SC2034 # names of theirs

wrong=0

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
