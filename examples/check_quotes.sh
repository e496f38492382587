#!/usr/bin/env bash
# Checks that every code block the README and docs/ quote from examples/ is
# the file itself. A quoted block is a fenced block right after a line
#   <!-- quoted: examples/NAME.cpp -->
#
#   check_quotes.sh SOURCE_DIR            check (exit status 1 on a difference)
#   check_quotes.sh SOURCE_DIR --update   rewrite the blocks from the files
set -u
root=$1
update=${2:-}
failed=0 count=0
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

for doc in "$root"/README.md "$root"/docs/*.md; do
    [ -f "$doc" ] || continue
    # Prints the document with every quoted block replaced by its file, and
    # lists each quoted file in $tmp/names.
    awk -v root="$root" -v names="$tmp/names" '
        /^<!-- quoted: .* -->$/ { name = $3; print; want = 1; next }
        want && !inside && /^```/ {
            print; inside = 1
            file = root "/" name
            while ((getline line < file) > 0) print line
            close(file)
            print name >> names
            next
        }
        inside && /^```$/ { print; inside = 0; want = 0; next }
        inside { next }
        { print }
    ' "$doc" >"$tmp/doc"
    if [ -f "$tmp/names" ]; then
        count=$((count + $(wc -l <"$tmp/names")))
        while read -r name; do
            [ -f "$root/$name" ] || { echo "${doc#"$root"/}: quotes $name, which does not exist"; failed=1; }
        done <"$tmp/names"
        rm -f "$tmp/names"
    fi
    if ! cmp -s "$doc" "$tmp/doc"; then
        if [ "$update" = --update ]; then
            cp "$tmp/doc" "$doc"
            echo "updated ${doc#"$root"/}"
        else
            echo "${doc#"$root"/} quotes example files that have changed:"
            diff "$tmp/doc" "$doc" | head -40
            failed=1
        fi
    fi
done
echo "$count quoted blocks checked"
[ "$count" -gt 0 ] || { echo "no quoted blocks found"; failed=1; }
[ $failed -eq 0 ] || echo "run: bash examples/check_quotes.sh . --update"
exit $failed
