#!/usr/bin/env bash
# mingw_expat.sh PRESET: Expat's 16-bit build for a Windows preset, in build/PRESET/expat. Debian has none for MinGW,
# so its source package is fetched and compiled.
set -euo pipefail
preset=$1
prefix=$PWD/build/$preset/expat
[ ! -f "$prefix/lib/libexpatw.a" ] || exit 0

source=$PWD/build/expat
if ! ls -d "$source"/expat-*/ > /dev/null 2>&1; then
    mkdir -p "$source/lists/partial"
    release=$(. /etc/os-release && echo "$VERSION_CODENAME")
    echo "deb-src http://deb.debian.org/debian $release main" > "$source/sources.list"
    apt=(apt-get -q -o "Dir::Etc::SourceList=$source/sources.list" -o Dir::Etc::SourceParts=/dev/null
        -o "Dir::State::Lists=$source/lists" -o APT::Sandbox::User=root)
    (cd "$source" && "${apt[@]}" update && "${apt[@]}" source expat)
fi

root=$(dirname "$(find "$source" -name CMakeLists.txt -path '*expat*' | sort | head -1)")
# A patch of Debian's compares what the package's other way of configuring defines as 1.
sed -i 's/^#cmakedefine \(XML_DTD\|XML_NS\)$/#define \1 1/' "$root/expat_config.h.cmake"
toolchain=$(sed -n "/\"$preset\"/,/}/s/.*\"toolchainFile\": \"\${sourceDir}\/\([^\"]*\)\".*/\1/p" CMakePresets.json | head -1)
cmake -S "$root" -B "$prefix/build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$PWD/$toolchain" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$prefix" -DEXPAT_CHAR_TYPE=wchar_t -DEXPAT_SHARED_LIBS=OFF -DEXPAT_BUILD_TOOLS=OFF \
    -DEXPAT_BUILD_EXAMPLES=OFF -DEXPAT_BUILD_TESTS=OFF -DEXPAT_BUILD_DOCS=OFF > /dev/null
cmake --build "$prefix/build" --target install
