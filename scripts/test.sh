#!/usr/bin/env bash
# Quick start, second command: set up, run the lint gate (scripts/lint.sh:
# clang-format and clang-tidy), then build and run the whole test suite three
# ways: native (then build, install, run and remove its Debian package), under
# AddressSanitizer and UndefinedBehaviorSanitizer, and for the panel's 32-bit
# ARM under qemu; then build the libFuzzer targets with clang and run each one
# for a bounded time (scripts/fuzz.sh). Any failure fails the run.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
mkdir -p "$root/build"
jobs=$(nproc)

run_variant() {
  local name=$1; shift
  echo "== $name: build"
  local start=$SECONDS
  "$root/scripts/build.sh" "$root/build/$name" "$@"
  echo "== $name: test"
  (cd "$root/build/$name" && ctest --output-on-failure -j"$jobs" --timeout 300)
  echo "== $name: done in $((SECONDS - start)) s"
}

only=${TECO_VARIANTS:-lint native package sanitize armhf fuzz}
for v in $only; do
  case $v in
    lint)
      start=$SECONDS
      WITH_LINT=1 "$root/scripts/setup.sh"
      "$root/scripts/lint.sh"
      echo "== lint: done in $((SECONDS - start)) s" ;;
    # Line tables only (-g1): backtraces still name files and lines, and the
    # build takes about a quarter less time than with full debug information.
    native) run_variant native -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG" \
      -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG" ;;
    sanitize)
      ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
        run_variant sanitize -DTECO_SANITIZE=ON -DTECO_QMAKE_TEST=OFF ;;
    package)
      # The Debian package of the native build, installed, run and removed.
      start=$SECONDS
      "$root/scripts/package.sh" "$root/build/native"
      echo "== package: done in $((SECONDS - start)) s" ;;
    armhf) "$root/scripts/armhf.sh" ;;
    fuzz)
      start=$SECONDS
      WITH_FUZZ=1 "$root/scripts/setup.sh"
      "$root/scripts/fuzz.sh"
      echo "== fuzz: done in $((SECONDS - start)) s" ;;
    *) echo "unknown variant $v" >&2; exit 2 ;;
  esac
done
