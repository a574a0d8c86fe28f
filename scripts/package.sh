#!/usr/bin/env bash
# Builds the Debian package from a build directory (build/native by default;
# configured and built first if missing), installs it, runs the installed
# programs, and removes (purges) the package again, also when a check fails.
# Usage: package.sh [BUILD-DIR]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/native}
log=$build.package.log
[ -f "$build/CMakeCache.txt" ] || "$root/scripts/build.sh" "$build"
cmake --build "$build" -j"$(nproc)" >"$log" 2>&1 || { tail -n 40 "$log"; exit 1; }
rm -f "$build"/teco-servo_*.deb
(cd "$build" && cpack -G DEB) >>"$log" 2>&1 || { tail -n 40 "$log"; exit 1; }
deb=$(ls "$build"/teco-servo_*.deb)
echo "package: $(basename "$deb"), $(du -k "$deb" | cut -f1) KiB"
dpkg-deb --field "$deb" Depends

fail() { echo "package: FAIL: $*" >&2; exit 1; }
# Every program in the package comes with its manual page.
contents=$(dpkg -c "$deb")
for program in $(grep -oE '/usr/bin/[^/ ]+$' <<<"$contents" | sed 's#.*/##'); do
  grep -qE "/usr/share/man/man1/$program\.1\.gz$" <<<"$contents" || fail "the package holds no manual page of $program"
done

sudo=""
[ "$(id -u)" = 0 ] || sudo=sudo
trap '$sudo dpkg --purge teco-servo >/dev/null 2>&1 || true' EXIT
if ! $sudo dpkg -i "$deb" >>"$log" 2>&1; then
  echo "package: installing its dependencies"
  $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -f -y -qq >>"$log" 2>&1
fi

plugin=$(dpkg -L teco-servo | grep '/libteco_servo\.so$') || fail "the package holds no plug-in"
version=$(teco-cli --version)
echo "$version"
[[ $(command -v teco-cli) == /usr/bin/teco-cli ]] || fail "teco-cli is not /usr/bin/teco-cli"
[[ $version == *"driver plug-in $plugin: "* ]] || fail "the installed teco-cli does not load $plugin"
teco-cli read HR100 || fail "teco-cli read HR100"
teco-sim --version || fail "teco-sim --version"
map=$(dpkg -L teco-servo | grep '/share/teco-servo/servo-drive\.csv$') || fail "the package holds no servo-drive.csv"
cmp -s "$map" <(teco-sim --print-map) || fail "$map is not the map that teco-sim has built in"
for program in teco-cli teco-sim; do
  page=$(dpkg -L teco-servo | grep "/man1/$program\.1\.gz$") || fail "no manual page of $program"
  if command -v man >/dev/null; then
    [[ $(man -w "$program") == "$page" ]] || fail "man -w $program does not find $page"
  fi
  [ -f "/usr/share/bash-completion/completions/$program" ] || fail "no completion for $program"
done
bash "$root/tests/install/test_completion.sh" /usr/share/bash-completion/completions/teco-cli \
  /usr/bin/teco-cli /usr/bin/teco-sim
