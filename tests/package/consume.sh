#!/bin/bash
# Builds and runs an application against the library, the way a user would.
# usage: consume.sh installed|subdirectory|pkg-config WORK_DIRECTORY PREFIX SOURCE_TREE COMPILER
set -euo pipefail
kind=$1 work=$2 prefix=$3 source=$4 compiler=$5
here=$(cd "$(dirname "$0")" && pwd)
program=$source/examples/ten_lines/ten_lines.cpp
rm -rf "$work"
mkdir -p "$work"

# Some distributions link with --as-needed by default: the host platform has to be listed even then.
case $kind in
installed | subdirectory)
    options=("-DPROGRAM=$program" "-DCMAKE_CXX_COMPILER=$compiler" -DCMAKE_BUILD_TYPE=None
        "-DCMAKE_EXE_LINKER_FLAGS=-Wl,--as-needed")
    if [ "$kind" = installed ]; then
        options+=("-DCMAKE_PREFIX_PATH=$prefix")
    else
        options+=("-DBUSINTERFACES_SOURCE=$source")
    fi
    cmake -S "$here/consumer" -B "$work" -G Ninja "${options[@]}" >"$work/configure.log" 2>&1 ||
        { cat "$work/configure.log" && exit 1; }
    cmake --build "$work" --target application layered_application >"$work/build.log" 2>&1 ||
        { cat "$work/build.log" && exit 1; }
    applications=("$work/application" "$work/layered_application")
    ;;
pkg-config)
    # An installed tree may have been moved since.
    cp -a "$prefix" "$work/moved"
    PKG_CONFIG_PATH=$(dirname "$(find "$work/moved" -name businterfaces.pc)")
    export PKG_CONFIG_PATH
    read -ra flags < <(pkg-config --cflags --libs businterfaces)
    "$compiler" -std=c++17 -Wall -Wextra -Werror "$program" -o "$work/application" -Wl,--as-needed "${flags[@]}"
    LD_LIBRARY_PATH=$(pkg-config --variable=libdir businterfaces)
    export LD_LIBRARY_PATH
    applications=("$work/application")
    ;;
*)
    echo "unknown kind '$kind'" >&2
    exit 2
    ;;
esac

for application in "${applications[@]}"; do
    # The host platform stands in the program's own list, ahead of the C library.
    needed=$(readelf -dW "$application" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
    first=$(grep -E '^(libvqhost|libc)\.so' <<<"$needed" | head -n 1)
    if [ "$first" != libvqhost.so.0 ] || ! grep -qx libbusinterfaces.so.0 <<<"$needed"; then
        printf '%s needs, in this order:\n%s\n' "$application" "$needed" >&2
        exit 1
    fi
    # It opens the logger's devices, sends and receives.
    "$application"
done
