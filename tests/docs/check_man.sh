#!/usr/bin/env bash
# Checks the manual pages built from docs/ (cmake/manpage.pl): each renders
# without a warning from groff and with no line of text taken for a request,
# has the sections a manual page has, carries every heading and every "$ "
# example of the docs pages it is made from, and shows no link left
# unresolved.
#
# Usage: check_man.sh DOCS-DIR MAN-DIR
set -uo pipefail
docs=$1 man=$2
export LC_ALL=C.UTF-8

# page: the docs pages it carries, the program's own first.
pages=(
    "teco-cli.1: teco-cli.md shell.md number-formats.md serial-link.md"
    "teco-sim.1: teco-sim.md"
    "teco-monitor.1: teco-monitor.md"
)

failures=0
fail() {
    echo "$1: $2"
    failures=$((failures + 1))
}

# The headings of a docs page as the manual shows them (the program page's
# own title is the manual's NAME).
headings() {
    local source=$1 first=$2
    grep -E '^#{1,3} ' "$source" | { [[ $first == yes ]] && tail -n +2 || cat; } |
        sed -E 's/^#+ //; s/[`*]//g'
}

check_page() {
    local page=$1 first=yes source text titles warnings heading line
    shift
    [[ -f $man/$page.gz ]] || { fail "$page" "not built ($man/$page.gz)"; return; }
    warnings=$(zcat "$man/$page.gz" | groff -k -t -man -Tutf8 -wall -z 2>&1)
    [[ -z $warnings ]] || fail "$page" "groff warns: $warnings"
    text=$(zcat "$man/$page.gz" | groff -k -t -man -Tutf8 -P-cbou 2>/dev/null)
    # The lines that stand where a section or subsection heading does.
    titles=$(grep -E '^( {3})?[^ ]' <<<"$text" | sed -E 's/^ +//')
    for heading in NAME SYNOPSIS DESCRIPTION "SEE ALSO"; do
        grep -qxF "$heading" <<<"$titles" || fail "$page" "no section $heading"
    done
    for source in "$@"; do
        while read -r heading; do
            grep -qixF -- "$heading" <<<"$titles" || fail "$page" "no heading \"$heading\" of $source"
        done < <(headings "$docs/$source" $first)
        while read -r line; do
            grep -qF -- "$line" <<<"$text" || fail "$page" "no example \"$line\" of $source"
        done < <(grep -E '^    \$ ' "$docs/$source" | sed -E 's/^ +//')
        first=no
    done
    # A line of text that begins with "." or "'" is a request to groff, which
    # drops it without a word when it knows the request ("..").
    zcat "$man/$page.gz" | grep -nE "^[.']" | grep -vE "^[0-9]+:\.(TH|SH|SS|PP|RS|RE|nf|fi|IP|TP|nh)( |$)" |
        sed 's/^/    /' | grep . && fail "$page" "lines of text read as requests (above)"
    grep -nE '⟨|\]\(' <<<"$text" | sed 's/^/    /' | grep . && fail "$page" "links left unresolved (above)"
}

for row in "${pages[@]}"; do
    read -r -a sources <<<"${row#*:}"
    check_page "${row%%:*}" "${sources[@]}"
done
[[ $failures == 0 ]] && echo "man pages: ${#pages[@]} pages render and carry their docs pages"
exit $((failures > 0))
