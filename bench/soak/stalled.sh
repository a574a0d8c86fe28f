#!/usr/bin/env bash
# The soak while the machine stalls: the soak is stopped (SIGSTOP) for 100 ms
# every 0.3 s, far longer than its tolerance. Commands that end past their
# bound during a stop must be reported with the stall and not fail the soak;
# the stops must have caught some. Usage: stalled.sh TECO_SOAK [options...]
set -uo pipefail
out=$(mktemp)
trap 'rm -f "$out"' EXIT
"$@" >"$out" 2>&1 &
soak=$!
(
    sleep 0.3
    while kill -STOP "$soak" 2>/dev/null; do
        sleep 0.1
        kill -CONT "$soak" 2>/dev/null
        sleep 0.3
    done
) &
stopper=$!
wait "$soak"
status=$?
kill "$stopper" 2>/dev/null
wait "$stopper" 2>/dev/null
kill -CONT "$soak" 2>/dev/null
grep -v '^    ' "$out"
if [ "$status" != 0 ]; then
    echo "stalled soak: exit status $status"
    exit 1
fi
if ! grep -q '^OVER BOUND IN A STALL' "$out"; then
    echo "stalled soak: no command ran into a stop (nothing shown)"
    exit 1
fi
echo "stalled soak: passed, the stops reported as stalls"
