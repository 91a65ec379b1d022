#!/bin/bash
# Prints what a shared object exports, demangled and sorted. Left out is what the compiler puts there of the standard
# library's templates; mangled names tell it apart: St, Sa, Ss, Si, So, Sd and Sb stand for names in std.
# usage: exported_symbols.sh LIBRARY
set -euo pipefail
nm --dynamic --defined-only --format=just-symbols "$1" |
    grep -vE '^_Z(GV|GR|T[VTISC])?(N?K?|NR?K?)(S[tabsiod]|9__gnu_cxx)' |
    c++filt |
    LC_ALL=C sort -u
