#!/usr/bin/env bash
# A header that tessel.h forgets is one that hosts don't find: compares what it includes with the folder.
set -euo pipefail
cd "$1"
diff <(sed -n 's/^#include <\(tessel\/.*\)>$/\1/p' tessel/tessel.h | LC_ALL=C sort) \
    <(find tessel -name '*.h' ! -path tessel/tessel.h | LC_ALL=C sort) && exit 0
echo "include/tessel/tessel.h (<) and the folder (>) differ."
exit 1
