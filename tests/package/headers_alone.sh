#!/bin/bash
# Compiles every public and every platform header alone, as C++17 with warnings as errors.
# usage: headers_alone.sh COMPILER SOURCE_TREE
set -euo pipefail
compiler=$1 source=$2
compiled=0 failed=0
while read -r header; do
    compiled=$((compiled + 1))
    "$compiler" -std=c++17 -fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion \
        -Wnon-virtual-dtor -Wcast-align -Wundef -Werror -I"$source/include" -I"$source/platform" \
        -include "$header" -x c++ /dev/null || failed=$((failed + 1))
done < <(find "$source/include" "$source/platform" -name '*.h' | LC_ALL=C sort)
echo "$compiled headers with $compiler, $failed failed"
[ "$compiled" -gt 0 ] && [ "$failed" -eq 0 ]
