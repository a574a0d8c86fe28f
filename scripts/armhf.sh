#!/usr/bin/env bash
# Builds the whole project for the panels' 32-bit ARM (Debian armhf) and runs
# every test under qemu. Any failure fails the run.
#
# The armhf headers and libraries come from a throw-away Debian sysroot in
# build/armhf-sysroot, made with mmdebstrap from this machine's own Debian
# mirror. It is made once and reused while its stamp matches the package list
# below; delete the directory to make it anew. Needs root (mmdebstrap
# --mode=root) the first time. This machine's apt is left alone: no armhf
# architecture is added to it. TECO_ARMHF_MIRROR overrides the mirror taken
# from /etc/apt; TECO_ARMHF_SYSROOT the sysroot's directory.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
sysroot=${TECO_ARMHF_SYSROOT:-$root/build/armhf-sysroot}
build=$root/build/armhf
jobs=$(nproc)
start=$SECONDS
export TECO_ARMHF_SYSROOT=$sysroot

# What the project links on the panel side, and what its tests link.
packages=(
  libc6-dev libstdc++-12-dev libubsan1
  qtbase5-dev libqt5sql5-sqlite libqt5serialport5-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libmodbus-dev
)

for tool in arm-linux-gnueabihf-g++ mmdebstrap; do
  command -v "$tool" >/dev/null || { WITH_ARMHF=1 "$root/scripts/setup.sh"; break; }
done
command -v qemu-arm-static >/dev/null || command -v qemu-arm >/dev/null \
  || WITH_ARMHF=1 "$root/scripts/setup.sh"

# The mirror this machine's apt uses for bookworm, so that the sysroot comes
# from the same place as the host's packages.
debian_mirror() {
  local f uri=""
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -r "$f" ] || continue
    # deb822: the first URI of the first stanza whose Suites has "bookworm".
    uri=$(awk 'BEGIN { RS = ""; FS = "\n" }
      { u = ""; s = ""
        for (i = 1; i <= NF; i++) {
          if ($i ~ /^URIs:/) { split($i, a, /[ \t]+/); u = a[2] }
          if ($i ~ /^Suites:/) s = " " $i " "
        }
        if (u != "" && s ~ /[ \t]bookworm[ \t]/) { print u; exit } }' "$f")
    [ -n "$uri" ] && break
  done
  if [ -z "$uri" ]; then
    for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
      [ -r "$f" ] || continue
      # one-line style: deb [options] URI bookworm components...
      uri=$(sed -E 's/\[[^]]*\]//' "$f" | awk '$1 == "deb" && $3 == "bookworm" { print $2; exit }')
      [ -n "$uri" ] && break
    done
  fi
  [ -n "$uri" ] || { echo "armhf: no Debian bookworm mirror in /etc/apt" >&2; return 1; }
  echo "$uri"
}

stamp=$sysroot/.teco-sysroot-stamp
want="bookworm armhf ${packages[*]}"
if [ ! -f "$stamp" ] || [ "$(cat "$stamp")" != "$want" ]; then
  echo "== armhf: sysroot"
  # Only a sysroot made here (it has the stamp) is ever replaced.
  if [ -e "$sysroot" ] && [ ! -f "$stamp" ]; then
    echo "armhf: $sysroot exists but was not made by this script; move it away" >&2
    exit 1
  fi
  [ "$(id -u)" = 0 ] || { echo "armhf: making the sysroot needs root" >&2; exit 1; }
  mirror=${TECO_ARMHF_MIRROR:-$(debian_mirror)}
  new=$sysroot.new
  mkdir -p "$(dirname "$sysroot")"
  rm -rf "$new"
  include=$(
    IFS=,
    echo "${packages[*]}"
  )
  # Snapshot mirrors serve Release files whose Valid-Until has passed.
  mmdebstrap --mode=root --variant=extract --architectures=armhf --include="$include" \
    --aptopt='Acquire::Check-Valid-Until "false"' \
    bookworm "$new" "deb $mirror bookworm main" >"$sysroot.log" 2>&1 \
    || {
      tail -n 40 "$sysroot.log"
      exit 1
    }
  # The cross linker and qemu follow the sysroot's symbolic links on this
  # machine: absolute ones would lead to the host's own files.
  find "$new" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
    target=$(readlink "$link")
    ln -sfn "$(realpath -m -s --relative-to="$(dirname "$link")" "$new$target")" "$link"
  done
  echo "$want" >"$new/.teco-sysroot-stamp"
  rm -rf "$sysroot"
  mv "$new" "$sysroot"
fi
# qemu looks up paths in the sysroot first: its own /dev/ptmx node is not
# tied to the host's devpts, so pseudo-terminals opened under qemu would fail,
# and its /dev/null is another file than the host's. Without its /dev, qemu
# uses the host's devices.
rm -rf "$sysroot/dev"

echo "== armhf: build"
mkdir -p "$build"
"$root/scripts/build.sh" "$build" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/armhf-toolchain.cmake"

# The build really is for the panels: ARM code, and plain char unsigned.
cxx=$(sed -n 's/^set(CMAKE_CXX_COMPILER "\(.*\)")$/\1/p' "$build"/CMakeFiles/*/CMakeCXXCompiler.cmake | head -n 1)
macros=$("$cxx" -dM -E -x c++ - </dev/null)
grep -q '^#define __CHAR_UNSIGNED__ 1$' <<<"$macros" \
  || { echo "armhf: plain char is not unsigned with $cxx" >&2; exit 1; }
for elf in "$build/libteco_servo.so" "$build/tests/unit_tests"; do
  [ -f "$elf" ] || continue
  header=$(LC_ALL=C readelf -h "$elf")
  grep -q 'Machine: *ARM$' <<<"$header" \
    || { echo "armhf: $elf is not ARM code" >&2; exit 1; }
done

echo "== armhf: test"
(cd "$build" && ctest --output-on-failure -j"$jobs" --timeout 300)
echo "== armhf: done in $((SECONDS - start)) s"
