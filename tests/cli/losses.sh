#!/usr/bin/env bash
# One small file per kind of loss or recovery: what `check` lists, and what
# `format` says on standard error, with both exit statuses, compared as one
# text with EXPECTED (XMLTREE_CLI_UPDATE=1 writes it instead).
#   losses.sh TOOL DIR EXPECTED
set -u
tool=$1 dir=$2 expected=$3
out=$(mktemp)
trap 'rm -f "$out"' EXIT
cd "$dir" || exit 2
for f in *.xml; do
    echo "== $f"
    "$tool" check "$f"
    echo "check: $?"
    "$tool" format "$f" 2>&1 >/dev/null
    echo "format: $?"
done >"$out"
if [ -n "${XMLTREE_CLI_UPDATE:-}" ]; then
    cp "$out" "$expected"
    exit 0
fi
diff "$expected" "$out" && exit 0
echo "output differs from $expected"
exit 1
