#!/usr/bin/env bash
# What no compiler and no clang-tidy checks: the seam, calls that may not be used, unfinished work.
set -euo pipefail
cd "$(dirname "$0")/../.."
broken=0

# forbid WHY PATTERN PATHSPEC...: lines that match (extended, Perl-like \b and \s) are errors.
forbid() {
    local why=$1 pattern=$2 status=0
    shift 2
    git grep --untracked -nIP -e "$pattern" -- "$@" || status=$?
    case $status in
        0) printf '^^ %s\n' "$why" >&2 && broken=1 ;;
        1) ;;                # nothing found
        *) exit "$status" ;; # the check itself is wrong
    esac
}

code=('*.h' '*.cpp')
libraries='curl/|glib|gio/|sqlite3|unicode/|libxml/|gumbo|openssl/|proxy\.h|windows\.h|wininet'
forbid "only the system's folder below src/os knows this library" \
    "^\s*#\s*include\s*[<\"]($libraries)" 'src/*' 'include/*' 'tools/*' ':!src/os/linux/*' ':!src/os/windows/*'
forbid "above the seam, include the contract in src/os" \
    '^\s*#\s*include\s*"os/(linux|windows)/' 'src/*' ':!src/os/linux/*' ':!src/os/windows/*'
forbid "Expat's two builds share this header: include xml/expat_wide.h" \
    '^\s*#\s*include\s*<expat' 'src/*' 'include/*' 'tools/*' 'bench/*' 'fuzz/*' ':!src/xml/expat_wide.h'
forbid "a public header includes <tessel/...> and the standard library only" \
    '^\s*#\s*include\s*("|<(?!tessel/)[^>]*[/.])' 'include/*'
forbid "the system is told apart in tessel/base/types.h and in CMake only" \
    '^\s*#\s*(el)?if.*\b(_WIN32|WIN32|_WIN64|__linux__|__unix__|__APPLE__|_MSC_VER|__MINGW32__)\b' \
    "${code[@]}" ':!include/tessel/base/types.h'
forbid "this call writes past its buffer or races" \
    '\b(strcpy|strcat|sprintf|vsprintf|gets|tmpnam|mktemp|alloca)\s*\(' "${code[@]}"
forbid "wait for the event, not for time to pass" \
    '\b(sleep|usleep|nanosleep|sleep_for|sleep_until|g_usleep|Sleep)\s*\(' "${code[@]}"
forbid "wait for the event, not for time to pass" '^\s*sleep\s' '*.sh' 'tools/dev/*' .ci/run
forbid "finish it, or write it into an issue" \
    '\b(TODO|FIXME|XXX)\b|(?i)\bfor now\b' . ':!tools/dev/house_rules.sh' ':!CONTRIBUTING.md'
exit "$broken"
