#!/usr/bin/env bash
# Runs the examples that a page (README.md or a page of docs/) shows and
# compares what they print with what the page says they print, and checks
# that its relative links lead somewhere.
#
# Usage: check_readme.sh PAGE.md BINDIR...
#   BINDIR: directories put first on PATH (where teco-cli and teco-sim are).
#   TECO_README_UPDATE=1 writes what the commands print now into PAGE.md
#   in place of the shown output of each example that differs (review it
#   with git diff).
#
# A link or image outside code, [text](TARGET), whose TARGET is not a URL
# must name a file or directory that exists, relative to the page; with
# #ANCHOR (or an anchor alone, in the page itself) the page linked must have
# a heading whose anchor that is, as GitHub makes them.
#
# An example is an indented code block (4 spaces) with lines that begin with
# "$ ": each such line is a command (a line ending in "\" goes on in the next
# line), and the lines after it, up to the next "$ " line or blank line, are
# what it prints on standard output and standard error together. The commands
# of one block run one after the other in one fresh directory, with standard
# input from /dev/null; without --port teco-cli talks to its own simulated
# drive. Before comparing, both sides are masked: pseudo-terminal names
# (/dev/pts/N), dates and clock times, the trace's seconds column, and
# numbers with a unit of time or rate (0.24 s, 8.29 ms, 17.0 commands/s),
# with the blanks around them that keep columns aligned; trailing blanks are
# dropped.
#
# A block that shows a session (lines that begin with "teco> " or
# "teco-cli: ") must begin with a "$ " command, or be marked as not checked
# by an HTML comment before it: <!-- unchecked: the reason -->. The same
# marker leaves out a block with "$ " lines (a real device, a display, a
# terminal, values that depend on time).
set -uo pipefail

readme=$1
name=$(basename "$readme")
shift
for dir in "$@"; do PATH="$(cd "$dir" && pwd):$PATH"; done
export PATH LC_ALL=C.UTF-8 TZ=UTC
unset COLUMNS

mapfile -t lines <"$readme"
total=${#lines[@]}
failures=0
checked=0
skipped=0
# Output ranges of the commands run, for TECO_README_UPDATE: start, end, text.
update_start=()
update_end=()
update_text=()

mask() {
    sed -E \
        -e 's#/dev/pts/[0-9]+#/dev/pts/N#g' \
        -e 's#[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}(\.[0-9]+)?Z?#<date>#g' \
        -e 's#[0-9]{4}-[0-9]{2}-[0-9]{2}#<date>#g' \
        -e 's#[0-9]{2}:[0-9]{2}:[0-9]{2}(\.[0-9]+)?#<time>#g' \
        -e 's#^ *[0-9]+\.[0-9]{6}( |$)#<clock>\1#' \
        -e 's#(^|[^0-9.A-Za-z]) *\+?[0-9]+(\.[0-9]+)? (ms|s|commands/s)\b#\1<n> \3#g' \
        -e 's#(<n> (ms|s|commands/s)) +#\1 #g' \
        -e 's#[[:space:]]+$##'
}

fail() {
    echo "$name:$1: $2"
    failures=$((failures + 1))
}

# Runs one command in WORK and compares its output with README lines
# [FROM, TO). Prints a diff naming the README line that differs.
check_command() {
    local at=$1 cmd=$2 work=$3 from=$4 to=$5
    local expected="" actual status k
    for ((k = from; k < to; k++)); do expected+="${lines[k]:4}"$'\n'; done
    actual=$(cd "$work" && timeout 120 bash -c "$cmd" 2>&1 </dev/null)
    status=$?
    checked=$((checked + 1))
    if [ "$status" = 124 ]; then
        fail "$at" "\$ ${cmd%%$'\n'*} did not end within 120 s"
        return
    fi
    local want got
    want=$(printf '%s' "$expected" | mask)
    got=$(printf '%s\n' "$actual" | mask)
    [ "$want" = "$got" ] && return
    update_start+=("$from")
    update_end+=("$to")
    update_text+=("$(printf '%s\n' "$actual" | sed -E 's/[[:space:]]+$//')")
    mapfile -t w <<<"$want"
    mapfile -t g <<<"$got"
    for ((k = 0; k < ${#w[@]} || k < ${#g[@]}; k++)); do
        [ "${w[k]-}" = "${g[k]-}" ] || break
    done
    fail "$((from + k + 1))" "the output of \$ ${cmd%%$'\n'*} differs (masked; - README, + printed):"
    diff -u --label "$name" --label printed <(printf '%s\n' "$want") <(printf '%s\n' "$got") | tail -n +3
}

# Checks the code block of README lines [FROM, TO).
check_block() {
    local from=$1 to=$2 reason=$3 i cmd at work has_command=0 looks_like_session=0
    for ((i = from; i < to; i++)); do
        case ${lines[i]:4} in
            '$ '*) has_command=1 ;;
            'teco> '* | 'teco-cli: '*) looks_like_session=1 ;;
        esac
    done
    if [ -n "$reason" ]; then
        skipped=$((skipped + 1))
        return
    fi
    if [ $has_command = 0 ]; then
        [ $looks_like_session = 1 ] && fail "$((from + 1))" \
            "this session shows no \$ command: begin it with one, or mark it <!-- unchecked: reason -->"
        return
    fi
    work=$(mktemp -d)
    i=$from
    while ((i < to)); do
        if [[ ${lines[i]:4} != '$ '* ]]; then
            [ -n "${lines[i]// /}" ] && [ "$i" = "$from" ] &&
                fail "$((i + 1))" "a checked example must begin with a \$ command"
            i=$((i + 1))
            continue
        fi
        at=$((i + 1))
        cmd=${lines[i]:6}
        while [[ $cmd == *\\ ]] && ((i + 1 < to)); do
            i=$((i + 1))
            cmd+=$'\n'"${lines[i]:4}"
        done
        i=$((i + 1))
        local out=$i
        while ((i < to)) && [ -n "${lines[i]// /}" ] && [[ ${lines[i]:4} != '$ '* ]]; do
            i=$((i + 1))
        done
        check_command "$at" "$cmd" "$work" "$out" "$i"
    done
    rm -rf "$work"
}

# The anchors of the headings of the Markdown file $1, one a line: lower
# case, punctuation dropped, blanks turned into hyphens.
anchors_of() {
    sed -nE 's/^#{1,6} +//p' "$1" | tr '[:upper:]' '[:lower:]' | sed -E 's/[^a-z0-9 _-]//g; s/ /-/g'
}

# Checks every relative link and image of the page outside code blocks.
links=0
check_links() {
    local dir k line target file anchor re='[]][(]([^)[:space:]]+)[)]'
    dir=$(dirname "$readme")
    for ((k = 0; k < total; k++)); do
        line=${lines[k]}
        [[ $line == '    '* ]] && continue
        while [[ $line =~ $re ]]; do
            target=${BASH_REMATCH[1]}
            line=${line#*"${BASH_REMATCH[0]}"}
            [[ $target =~ ^[a-z]+: ]] && continue
            links=$((links + 1))
            file=${target%%#*}
            [ -z "$file" ] && file=$name
            if [ ! -e "$dir/$file" ]; then
                fail "$((k + 1))" "the link $target leads to $file, which does not exist"
                continue
            fi
            [[ $target == *'#'* ]] || continue
            anchor=${target#*#}
            anchors_of "$dir/$file" | grep -qxF -- "$anchor" ||
                fail "$((k + 1))" "the link $target leads to no heading of $file"
        done
    done
}
check_links

# Finds the indented code blocks and the markers before them.
reason=""
prev_blank=1
i=0
while ((i < total)); do
    line=${lines[i]}
    if [[ $line =~ ^'<!-- unchecked: '(.+)' -->'$ ]]; then
        reason=${BASH_REMATCH[1]}
        prev_blank=1
        i=$((i + 1))
        continue
    fi
    if [ $prev_blank = 1 ] && [[ $line == '    '* ]] && [ -n "${line// /}" ]; then
        start=$i
        while ((i < total)) && { [[ ${lines[i]} == '    '* ]] || [ -z "${lines[i]// /}" ]; }; do
            i=$((i + 1))
        done
        end=$i
        while ((end > start)) && [ -z "${lines[end - 1]// /}" ]; do end=$((end - 1)); done
        check_block "$start" "$end" "$reason"
        reason=""
        prev_blank=1
        continue
    fi
    if [ -z "${line// /}" ]; then
        prev_blank=1
    else
        prev_blank=0
        reason=""
    fi
    i=$((i + 1))
done

if [ "${TECO_README_UPDATE:-0}" = 1 ]; then
    for ((k = ${#update_start[@]} - 1; k >= 0; k--)); do
        mapfile -t shown <<<"${update_text[k]}"
        [ -z "${update_text[k]}" ] && shown=()
        for j in "${!shown[@]}"; do shown[j]="    ${shown[j]}"; done
        lines=("${lines[@]:0:update_start[k]}" "${shown[@]}" "${lines[@]:update_end[k]}")
    done
    printf '%s\n' "${lines[@]}" >"$readme"
    echo "readme: wrote the output of ${#update_start[@]} commands into $readme"
    exit 0
fi

echo "$name: $checked commands checked, $skipped examples marked unchecked, $links links followed, $failures failures"
[ $failures = 0 ]
