#!/bin/sh
# Builds the panel's qmake project out of tree and checks that a plug-in
# came out of it. Usage: qmake_build.sh QMAKE PROJECT.pro BUILD_DIR
set -eu
qmake=$1 pro=$2 dir=$3
rm -rf "$dir" && mkdir -p "$dir/modules" && cd "$dir"

# The plug-in needs QtCore and QtSql only. A panel's embedded Qt 4 mkspec adds
# gui and network to QT before the project is read (as "QT+=..." given before
# the project does here); the project must drop them, or a panel Qt built
# without QtNetwork fails to link the plug-in.
(cd modules && "$qmake" "QT+=gui network" "$pro" >/dev/null)
modules=$(sed -n 's/^DEFINES *=//p' modules/Makefile | tr ' ' '\n' | sed -n 's/^-DQT_\(.*\)_LIB$/\1/p' | sort | tr '\n' ' ')
if [ "$modules" != "CORE SQL " ]; then
  echo "qmake: the plug-in uses the Qt modules $modules(QtCore and QtSql only, please)"
  grep -E '^(DEFINES|LIBS) ' modules/Makefile
  exit 1
fi

"$qmake" "$pro"
make -j"$(nproc)" >build.log 2>&1 || { tail -n 40 build.log; exit 1; }
ls -l lib*teco_servo*.so
