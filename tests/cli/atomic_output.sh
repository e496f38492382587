#!/usr/bin/env bash
# format -o: the output file is replaced whole or not at all.
#   atomic_output.sh TOOL EXAMPLES_DIR EXPECTED_DIR
set -u
tool=$1 examples=$2 expected=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
fail() { echo "FAIL: $*"; failed=1; }
leftovers() { find "$work" -name '.*.??????' | grep -q . && fail "temporary file left: $1"; }

# Over its own input: the result is what format writes to standard output.
cp "$examples/catalog.xml" "$work/catalog.xml"
chmod 640 "$work/catalog.xml"
"$tool" format "$work/catalog.xml" -o "$work/catalog.xml" || fail "exit status $? over own input"
cmp -s "$expected/format_catalog.out" "$work/catalog.xml" || fail "own input not formatted"
[ "$(stat -c %a "$work/catalog.xml")" = 640 ] || fail "mode of the replaced file changed"
leftovers "own input"

# Into a new file, relative to the working folder.
(cd "$work" && "$tool" format "$examples/broken.xml" -o new.xml) || fail "exit status $? new file"
cmp -s "$expected/format_broken.out" "$work/new.xml" || fail "new file differs"

# A failed run leaves an existing output untouched.
printf 'keep me\n' >"$work/keep.xml"
"$tool" format "$work/missing.xml" -o "$work/keep.xml" 2>/dev/null
[ $? = 2 ] || fail "missing input: exit status not 2"
[ "$(cat "$work/keep.xml")" = "keep me" ] || fail "output changed by a failed read"
printf 'no element here\n' >"$work/text.xml"
"$tool" format "$work/text.xml" -o "$work/keep.xml" 2>/dev/null
[ $? = 1 ] || fail "input without element: exit status not 1"
[ "$(cat "$work/keep.xml")" = "keep me" ] || fail "output changed for an input without element"
leftovers "failed runs"

# An output folder that does not exist: one line on standard error, status 2.
err=$("$tool" format "$examples/catalog.xml" -o "$work/no/such/out.xml" 2>&1 >/dev/null)
status=$?
[ $status = 2 ] || fail "missing folder: exit status $status"
case "$err" in
    "xmltree: cannot write '$work/no/such/out.xml': No such file or directory") ;;
    *) fail "missing folder: message '$err'" ;;
esac
exit $failed
