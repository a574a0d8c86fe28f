#!/usr/bin/env bash
# The lint gate: clang-format (the repository's .clang-format) in check mode
# over the C++ files of runtime/, host/ and bench/, then clang-tidy (the
# root .clang-tidy) over their translation units, tests and fuzz targets
# left out. Prints every finding and exits 1 if there is any.
# Usage: scripts/lint.sh [build dir]   (default build/lint)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/lint}
cd "$root"

for tool in clang-format clang-tidy; do
  command -v $tool >/dev/null || { echo "lint: $tool is missing (WITH_LINT=1 scripts/setup.sh installs it)" >&2; exit 2; }
done

status=0
mapfile -t files < <(git ls-files -- runtime host bench | grep -E '\.(cpp|h)$')
mapfile -t units < <(printf '%s\n' "${files[@]}" | grep -E '\.cpp$')

echo "== lint: clang-format over ${#files[@]} files"
if ! clang-format --dry-run -Werror "${files[@]}"; then
  echo "lint: clang-format wants changes; run clang-format -i on the files above" >&2
  status=1
fi

# clang-tidy reads the compiler's flags from compile_commands.json. Only the
# configuration is needed (a few seconds; it also picks up new files): no
# product file includes a generated one (moc output is compiled on its own),
# so nothing is built.
mkdir -p "$build"
cmake -S "$root" -B "$build" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DTECO_QMAKE_TEST=OFF >"$build/lint.configure.log" 2>&1 ||
  { cat "$build/lint.configure.log"; exit 1; }

echo "== lint: clang-tidy over ${#units[@]} translation units"
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
# One report per unit; a header's findings appear once for every unit that
# includes it, so they are merged below.
printf '%s\n' "${units[@]}" |
  xargs -P"$(nproc)" -I{} sh -c 'clang-tidy -p "$1" --quiet "$2" >"$3/$(echo "$2" | tr / _).log" 2>&1 || echo "$2" >>"$3/failed"' \
    sh "$build" {} "$out"
if [ -s "$out/failed" ]; then
  # Each finding with its notes, once.
  cat "$out"/*.log | grep -v -E '^[0-9]+ warnings? (and [0-9]+ errors? )?generated\.$|^Suppressed [0-9]+ warnings|^Use -header-filter|^Error while processing' |
    awk '/^\/.*: (warning|error): / { dup = seen[$0]++ } !dup'
  count=$(cat "$out"/*.log | grep -E '^/.*: (warning|error): ' | sort -u | wc -l)
  echo "lint: clang-tidy found $count problems (in $(sort -u "$out/failed" | wc -l) units)" >&2
  status=1
fi
[ $status = 0 ] && echo "== lint: clean"
exit $status
