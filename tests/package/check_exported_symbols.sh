#!/bin/bash
# Compares what the library exports with the list in the tree.
# usage: check_exported_symbols.sh LIBRARY
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
if ! diff -u --label listed --label exported "$here/exported-symbols.txt" <("$here/exported_symbols.sh" "$1"); then
    echo "The exported symbols changed. If that is meant, ./dev symbols writes the list anew." >&2
    exit 1
fi
