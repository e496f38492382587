#!/usr/bin/env bash
# Out of memory is a failure: exit status 2 and one line naming the file and
# the cause, never a tree cut short and written as if whole; -o leaves its
# target as it was.
#   memory.sh TOOL
set -u
tool=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
fail() { echo "FAIL: $*"; failed=1; }

# About 30 MB of small records: the tree takes several times that.
{
    echo '<records>'
    yes '  <record id="7" kind="plain"><name>Some name</name><value>4 &amp; 2</value></record>' |
        head -n 330000
    echo '</records>'
} >"$work/big.xml"
cp "$work/big.xml" "$work/copy.xml"
limit=200000  # KB of address space
# A sanitizer build reserves far more address space than that just to start.
if ! (ulimit -v $limit; "$tool" --version) >/dev/null 2>&1; then
    echo "skipped: the tool does not start within $limit KB of address space"
    exit 77
fi

check() {  # check WHAT STATUS ERRFILE
    [ "$2" = 2 ] || fail "$1: exit status $2"
    [ "$(wc -l <"$3")" = 1 ] || fail "$1: not one line: $(cat "$3")"
    grep -Eq "^xmltree: .*'[^']*big\.xml': .*(Out of memory|Input too large)" "$3" ||
        fail "$1: message $(cat "$3")"
}

(ulimit -v $limit; "$tool" format "$work/big.xml" -o "$work/big.xml" >/dev/null 2>"$work/err")
check "format -o" $? "$work/err"
cmp -s "$work/big.xml" "$work/copy.xml" || fail "format -o: target changed"
find "$work" -name '.*.??????' | grep -q . && fail "format -o: temporary file left"

(ulimit -v $limit; "$tool" stats "$work/big.xml" >"$work/out" 2>"$work/err")
check "stats" $? "$work/err"
[ -s "$work/out" ] && fail "stats: wrote $(head -c 200 "$work/out")"
exit $failed
