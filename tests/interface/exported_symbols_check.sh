#!/usr/bin/env bash
# exported_symbols_check.sh LIBRARY: a changed interface has to be a line in somebody's diff.
set -euo pipefail
library=$(realpath "$1")
cd "$(dirname "$0")/../.."
diff -u tests/interface/exported_symbols.txt <(tests/interface/exported_symbols.sh "$library") && exit 0
cat << EOT
The exported names have changed. If that is meant, say so in CHANGELOG.md and write the new list:
  tests/interface/exported_symbols.sh $(realpath --relative-to=. "$library") > tests/interface/exported_symbols.txt
EOT
exit 1
