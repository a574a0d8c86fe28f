#!/usr/bin/env bash
# scripts/build.sh into a directory whose parent does not exist yet, as on a
# fresh clone (build/native without build/): its configure log must land next
# to the build directory and be shown when the configuration fails. A
# generator that does not exist makes cmake fail at once.
# Usage: test_build_script.sh SOURCE_DIR
set -uo pipefail
root=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
out=$(bash "$root/scripts/build.sh" "$tmp/fresh/native" -G "No Such Generator" 2>&1)
status=$?
fail() { echo "build.sh: $1"; echo "$out"; exit 1; }
[ "$status" = 1 ] || fail "exit status $status, not 1, for a failed configuration"
[ -f "$tmp/fresh/native.configure.log" ] || fail "no configure log at $tmp/fresh/native.configure.log"
grep -q "No Such Generator" <<<"$out" || fail "cmake's own message is not shown"
echo "build.sh: a failed configuration in a fresh tree shows cmake's message"
