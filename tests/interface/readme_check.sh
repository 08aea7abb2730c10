#!/usr/bin/env bash
# The first program in the README is one that is built and run: examples/first_request.
set -euo pipefail
cd "$(dirname "$0")/../.."
# shellcheck disable=SC2016 # the marks of a code block
diff -u examples/first_request/main.cpp <(sed -n '/^```cpp$/,/^```$/p' README.md | sed '1d;/^```$/,$d')
