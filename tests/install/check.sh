#!/usr/bin/env bash
# check.sh: installs tessel, moves the tree, builds a host against it by CMake and by pkg-config, and runs
# both and the installed command against a server. What it is there to catch: a header, symbol or path that
# only the source tree has.
set -euo pipefail
cd "$(dirname "$0")/../.."
. tools/dev/nginx.sh
work=$(mktemp -d)
trap 'stop_nginx "$work"; rm -rf "$work"' EXIT
prefix=$work/moved/tessel
host=examples/first_request/main.cpp

./dev install "$work/installed"
mkdir "$work/moved"
mv "$work/installed" "$prefix"

cmake -S tests/install -B "$work/by_cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix"
cmake --build "$work/by_cmake"

PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name tessel.pc)")
export PKG_CONFIG_PATH
mkdir "$work/by_pkg_config"
# shellcheck disable=SC2046 # a list of options
c++ -std=c++17 "$host" $(pkg-config --cflags --libs tessel) -o "$work/by_pkg_config/consumer"
libraries=$(pkg-config --variable=libdir tessel)

start_page_server "$work"
site=http://127.0.0.1:$(head -1 "$work/ports")
for consumer in "$work"/by_cmake/consumer "$work"/by_pkg_config/consumer; do
    said=$(LD_LIBRARY_PATH=$libraries "$consumer" "$site/page.txt")
    echo "$consumer: $said"
    [ "$said" = 'arrived: status 200, 12 characters' ]
done
[ "$("$prefix/bin/tessel" get "$site/page.txt")" = 'Hello there' ]
[ "$("$prefix/bin/tessel" --version)" = "tessel $(pkg-config --modversion tessel)" ]
[ -s "$prefix/share/man/man1/tessel.1" ]
echo 'function FindProxyForURL() { return "PROXY p:1"; }' > "$work/proxy.pac"
said=$(echo "ask file://$work/proxy.pac http://h.example/" | "$libraries/tessel/tessel-proxy-helper" 2> /dev/null)
[ "$said" = $'ready\nanswer PROXY p:1' ]
echo "The installed tree works."
