#!/bin/sh
# Builds the panel's qmake project out of tree and checks that a plug-in
# came out of it. Usage: qmake_build.sh QMAKE PROJECT.pro BUILD_DIR
set -eu
qmake=$1 pro=$2 dir=$3
rm -rf "$dir" && mkdir -p "$dir" && cd "$dir"
"$qmake" "$pro"
make -j"$(nproc)" >build.log 2>&1 || { tail -n 40 build.log; exit 1; }
ls -l lib*teco_servo*.so
