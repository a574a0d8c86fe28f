#!/usr/bin/env bash
# The bash completion against the programs' own --list-completions: each row
# names what it checks, the words offered, and the command line up to the
# word being completed (the last one, "" for a new word).
# Usage: test_completion.sh COMPLETION-SCRIPT TECO-CLI TECO-SIM
set -u
# shellcheck source=/dev/null
source "$1"
cli=$2 sim=$3
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
touch "$dir/jobs.txt"
failures=0

check()
{
    local what=$1 expected=$2
    shift 2
    COMP_WORDS=("$@")
    COMP_CWORD=$(($# - 1))
    COMPREPLY=()
    _teco_complete 2>/dev/null
    local got=${COMPREPLY[*]:-}
    if [[ $got != "$expected" ]]; then
        echo "FAIL: $what: ${*:2}: expected \"$expected\", got \"$got\""
        failures=$((failures + 1))
    fi
}

check "options by their start" "--plugin --port --parities" "$cli" --p
check "a new option of the table" "--version" "$cli" --vers
check "commands before the command" "read" "$cli" re
check "an integer option's value is skipped" "write" "$cli" --station 2 wr
check "a flag takes no value" "scan" "$cli" --json sc
check "address prefixes for read" "FN5DO FN6HR" "$cli" read F
check "prefixes in upper case whatever typed" "DO DI" "$cli" read d
check "every poll tag is an address" "HR" "$cli" poll IR1 h
check "write values are not addresses" "" "$cli" write HR1 H
check "--type's words" "word" "$cli" read HR1 --type w
check "--type=value" "bit byte" "$cli" read HR1 --type = b
check "--address takes an address" "IR" "$cli" scan --address I
check "a free text value is left alone" "" "$cli" --link ""
check "a file option takes file names" "$dir/jobs.txt" "$cli" --sim-map "$dir/jo"
check "batch takes a file" "$dir/jobs.txt" "$cli" --retry 1 batch "$dir/j"
check "options after the command" "--count" "$cli" read HR1 --cou
check "teco-sim's own options" "--stations --seed" "$sim" --s
check "teco-sim has no commands" "" "$sim" ""
check "a program that is not there" "" "$dir/none" --p

[[ $failures == 0 ]] || exit 1
echo "completion: all rows pass"
