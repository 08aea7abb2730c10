#!/usr/bin/env bash
# exported_symbols.sh LIBRARY: the names that a shared library exports, one a line, each once.
set -euo pipefail
nm -D --defined-only -C "$1" | cut -d ' ' -f 3- | LC_ALL=C sort -u
