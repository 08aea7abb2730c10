# shellcheck shell=bash
# What the verbs share: printing and running commands, packages, configuring and building a preset.
# Sourced with the repository's root as the current directory.

jobs=$(nproc)
export CCACHE_NOHASHDIR=1 CCACHE_BASEDIR=$PWD

# Prints a command and runs it.
run() {
    printf '+ %s\n' "$*" >&2
    "$@"
}

fail() {
    echo "dev: $*" >&2
    exit 1
}

usage() {
    sed -n '2s/^# /usage: .\/dev /p' "$0" >&2
    exit 2
}

# packages SECTION...: installs what is missing of these sections of packages.txt.
packages() {
    local wanted installed missing service as_root=()
    command -v dpkg-query > /dev/null || return 0 # another system brings its own
    wanted=$(awk -v sections=" $* " '
        /^\[/ { take = index(sections, " " substr($1, 2, length($1) - 2) " "); next }
        take && $1 !~ /^(#|$)/ { print $1 }' tools/dev/packages.txt | sort -u)
    # It fails when it has never heard of one; that one is missing then.
    # shellcheck disable=SC2086 # a list of words
    installed=$({ dpkg-query -W -f '${db:Status-Status} ${Package}\n' $wanted 2> /dev/null || true; } |
        awk '$1 == "installed" { print $2 }' | sort -u)
    missing=$(comm -23 <(echo "$wanted") <(echo "$installed"))
    [ -n "$missing" ] || return 0
    if [ "$(id -u)" != 0 ]; then
        as_root=(sudo)
        command -v sudo > /dev/null || fail "install these first: ${missing//$'\n'/ }"
    fi
    run "${as_root[@]}" apt-get update -q
    # shellcheck disable=SC2086
    run "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -qy --no-install-recommends $missing
    # The programs are needed, not Debian's services on their usual ports.
    for service in nginx squid tinyproxy; do
        if [[ $missing == *$service* && -d /run/systemd/system ]]; then
            run "${as_root[@]}" systemctl disable --now "$service"
        fi
    done
}

# configure PRESET [CMAKE ARGUMENT...]: unless that has been done; the build itself follows changed lists.
configure() {
    local preset=$1 launcher=()
    shift
    if [ $# = 0 ] && [ "build/$preset/build.ninja" -nt CMakePresets.json ]; then
        return 0
    fi
    if command -v ccache > /dev/null; then
        launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    fi
    run cmake --preset "$preset" "${launcher[@]}" "$@"
}

# build PRESET [TARGET...]
build() {
    local preset=$1
    shift
    run cmake --build "build/$preset" -j"$jobs" ${1:+--target "$@"}
}
