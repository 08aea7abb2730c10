#!/usr/bin/env bash
# wine_tessel.sh ARGUMENT...: the command of the Windows build under the Wine that tools/dev/wine.sh has started.
exec "$(PATH=$PATH:/usr/lib/wine command -v wine64)" "$(dirname "$0")/../../build/windows/bin/tessel.exe" "$@"
