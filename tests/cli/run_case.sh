#!/usr/bin/env bash
# Runs the tool once and compares its standard output, standard error and exit
# status with the expected ones.
#
#   run_case.sh [--stdin FILE] [--drop REGEX] TOOL WORKDIR EXPECTED STATUS [ARGS...]
#
# EXPECTED is a path without extension: EXPECTED.out holds the standard output
# (absent: none expected), EXPECTED.err the standard error (absent: none).
# --drop removes matching lines from the standard output before comparing
# (for figures that vary, like timings).
#
# With XMLTREE_CLI_UPDATE=1 in the environment the expected files are written
# from this run instead; review the difference before committing it.
set -u
stdin=/dev/null
drop=
while [ $# -gt 0 ]; do
    case "$1" in
        --stdin) stdin=$2; shift 2 ;;
        --drop) drop=$2; shift 2 ;;
        *) break ;;
    esac
done
tool=$1 workdir=$2 expected=$3 status=$4
shift 4

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
(cd "$workdir" && "$tool" "$@" <"$stdin" >"$tmp/out" 2>"$tmp/err")
actual=$?
if [ -n "$drop" ]; then
    grep -Ev "$drop" "$tmp/out" >"$tmp/out.kept"
    mv "$tmp/out.kept" "$tmp/out"
fi

if [ -n "${XMLTREE_CLI_UPDATE:-}" ]; then
    for stream in out err; do
        if [ -s "$tmp/$stream" ]; then cp "$tmp/$stream" "$expected.$stream"; else rm -f "$expected.$stream"; fi
    done
    echo "$actual" >"$tmp/status"
    [ "$actual" = "$status" ] || echo "note: exit status $actual, expected $status"
    exit 0
fi

failed=0
if [ "$actual" != "$status" ]; then
    echo "exit status $actual, expected $status"
    failed=1
fi
for stream in out err; do
    want="$expected.$stream"
    [ -f "$want" ] || want=/dev/null
    if ! cmp -s "$want" "$tmp/$stream"; then
        echo "standard $stream differs from $want:"
        diff "$want" "$tmp/$stream" | cat -A | head -40
        failed=1
    fi
done
exit $failed
