#!/usr/bin/env bash
# Installs the build into a fresh prefix, moves the installed tree, and runs
# it: the programs must load the plug-in installed with them (not the build
# tree's), and the manual pages, completions and README must be in place,
# with every page that the README and its pages link.
# Usage: test_install.sh BUILD-DIR [man]
set -euo pipefail
build=$1 man=${2:-}
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
cmake --install "$build" --prefix "$root/first" >/dev/null
mv "$root/first" "$root/moved"
prefix=$root/moved

fail() { echo "FAIL: $*"; exit 1; }

plugin=$(find "$prefix" -path '*/teco-servo/libteco_servo.so')
[[ -n $plugin ]] || fail "no plug-in under $prefix"
version=$("$prefix/bin/teco-cli" --version)
[[ $version == *"driver plug-in $plugin: "* ]] || fail "teco-cli --version does not name $plugin: $version"
"$prefix/bin/teco-cli" read HR100 >/dev/null || fail "the installed teco-cli cannot read HR100"
[[ $("$prefix/bin/teco-sim" --version) == "teco-sim "* ]] || fail "teco-sim --version"
files=(share/bash-completion/completions/teco-cli share/bash-completion/completions/teco-sim
    share/doc/teco-servo/README.md share/teco-servo/servo-drive.csv)
[[ $man == man ]] && files+=(share/man/man1/teco-cli.1.gz share/man/man1/teco-sim.1.gz)
# teco-monitor is built where Qt Widgets and Charts are.
if [[ -e $prefix/bin/teco-monitor ]]; then
    version=$("$prefix/bin/teco-monitor" --version)
    [[ $version == *"driver plug-in $plugin: "* ]] || fail "teco-monitor --version does not name $plugin: $version"
    [[ $man == man ]] && files+=(share/man/man1/teco-monitor.1.gz)
fi
for f in "${files[@]}"; do
    [[ -f $prefix/$f ]] || fail "$f is not installed"
done
# Every relative link of the installed pages leads to an installed file.
doc=$prefix/share/doc/teco-servo
for page in "$doc"/README.md "$doc"/docs/*.md; do
    while read -r link; do
        target=${link:2:-1}
        target=${target%%#*}
        [[ -z $target || $target =~ ^[a-z]+: ]] && continue
        [[ -e $(dirname "$page")/$target ]] || fail "${page#"$doc"/} links $target, which is not installed"
    done < <(grep -v '^    ' "$page" | grep -oE '\]\([^)[:space:]]+\)')
done
echo "install: $prefix holds ${#files[@]} files checked and a working teco-cli"
