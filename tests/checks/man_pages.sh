#!/usr/bin/env bash
# man_pages.sh SOURCES PAGES: the manual pages of the directory PAGES are well formed, refer to pages
# that exist, and qeli2c(3) has every exported name and an example that compiles.
set -u
sources=$1 pages=$2 status=0
fail() { echo "$*" >&2; status=1; }
count=0
for page in "$pages"/man?/*; do
    count=$((count + 1))
    # Whether a page of other packages is installed is no fault of these; a generated page has no date.
    mandoc -T lint "$page" 2>&1 | grep -vE 'referenced manual not found|outdated mandoc.db|missing date' >&2 && status=1
    while read -r name section; do
        [ -e "$pages/man$section/$name.$section" ] || fail "$page refers to $name($section), which is not there"
    done < <(sed -nE 's/^\.Xr (qel[a-z0-9-]*) ([0-9]).*/\1 \2/p; s/\\//g; s/^(qel[a-z0-9-]*)\(([0-9])\).*/\1 \2/p' "$page")
done
[ "$count" -ge 7 ] || fail "only $count pages in $pages"
while read -r name; do
    grep -qE "^\.(Fn|Va|Pf \( Fn) $name( |$)" "$pages/man3/qeli2c.3" || fail "qeli2c(3) does not have $name"
done <"$sources/tests/checks/libqeli2c.names"
sed -n '/^\.Sh EXAMPLES/,$p' "$pages/man3/qeli2c.3" | sed -n '/^\.Bd/,/^\.Ed/{/^\./d;s/\\e/\\/g;p}' |
    ${CC:-cc} -std=c11 -Wall -Wextra -Werror -I "$sources/include" -fsyntax-only -x c - ||
    fail "the example of qeli2c(3) does not compile"
exit $status
