#!/usr/bin/env bash
# -o: written whole or not at all, never over data it would lose unasked,
# only onto what a user means (a new name, a regular file, a link's target),
# and no temporary file left behind by a failure or a signal. Also input
# read from a FIFO.
#   files.sh TOOL EXAMPLES_DIR DATA_DIR EXPECTED_DIR
set -u
tool=$1 examples=$2 data=$3 expected=$4
work=$(mktemp -d)
pids=()
cleanup() {
    for p in "${pids[@]}"; do kill "$p" 2>/dev/null; done
    rm -rf "$work"
}
trap cleanup EXIT
failed=0
fail() { echo "FAIL: $*"; failed=1; }
leftovers() { find "$work" -name '.*.??????' | grep -q . && fail "temporary file left: $1"; }
same() { cmp -s "$1" "$2" || fail "$3"; }

# Over its own input: the result is what format writes to standard output.
cp "$examples/catalog.xml" "$work/catalog.xml"
chmod 640 "$work/catalog.xml"
"$tool" format "$work/catalog.xml" -o "$work/catalog.xml" || fail "exit status $? over own input"
same "$expected/format_catalog.out" "$work/catalog.xml" "own input not formatted"
[ "$(stat -c %a "$work/catalog.xml")" = 640 ] || fail "mode of the replaced file changed"
leftovers "own input"
if [ "$(id -u)" = 0 ]; then  # only root may give a file to someone else
    chown 65534:65534 "$work/catalog.xml"
    "$tool" format "$work/catalog.xml" -o "$work/catalog.xml" || fail "exit status $? other owner"
    [ "$(stat -c %u:%g "$work/catalog.xml")" = 65534:65534 ] || fail "owner of the replaced file changed"
fi

# Into a new file, relative to the working folder.
(cd "$work" && "$tool" format "$examples/catalog.xml" -o new.xml) || fail "exit status $? new file"
same "$expected/format_catalog.out" "$work/new.xml" "new file differs"

# A failed run leaves an existing output untouched.
printf 'keep me\n' >"$work/keep.xml"
cp "$work/keep.xml" "$work/kept.xml"
"$tool" format "$work/missing.xml" -o "$work/keep.xml" 2>/dev/null
[ $? = 2 ] || fail "missing input: exit status not 2"
printf 'no element here\n' >"$work/text.xml"
"$tool" format "$work/text.xml" -o "$work/keep.xml" 2>/dev/null
[ $? = 1 ] || fail "input without element: exit status not 1"
same "$work/kept.xml" "$work/keep.xml" "output changed by a failed run"
leftovers "failed runs"

# An output folder that does not exist: one line on standard error, status 2.
err=$("$tool" format "$examples/catalog.xml" -o "$work/no/such/out.xml" 2>&1 >/dev/null)
status=$?
[ $status = 2 ] || fail "missing folder: exit status $status"
[ "$err" = "xmltree: cannot write '$work/no/such/out.xml': No such file or directory" ] ||
    fail "missing folder: message '$err'"

# Losses: an existing file is not replaced without --lossy; a new one is
# written, with the summary on standard error.
cp "$data/feed.xml" "$work/feed.xml"
err=$(cd "$work" && "$tool" sort feed.xml --by tag -o feed.xml 2>&1)
status=$?
[ $status = 2 ] || fail "lossy over a file: exit status $status"
case "$err" in
    "xmltree: 'feed.xml' not replaced: 1 comment, "*" would not be kept ('xmltree check feed.xml' lists them; --lossy writes anyway)") ;;
    *) fail "lossy over a file: message '$err'" ;;
esac
same "$data/feed.xml" "$work/feed.xml" "lossy over a file: file changed"
leftovers "refused"
(cd "$work" && "$tool" format feed.xml -o feed.xml --lossy 2>"$work/err") || fail "--lossy: exit status $?"
[ -s "$work/err" ] && fail "--lossy: said $(cat "$work/err")"
"$tool" format "$data/feed.xml" --lossy >"$work/feed.want"
same "$work/feed.want" "$work/feed.xml" "--lossy: not the formatted text"
err=$("$tool" format "$data/feed.xml" -o "$work/feed-new.xml" 2>&1) || fail "lossy new file: exit status $?"
case "$err" in
    "xmltree: 1 comment, "*" were not kept; 'xmltree check $data/feed.xml' lists them") ;;
    *) fail "lossy new file: message '$err'" ;;
esac
same "$work/feed.want" "$work/feed-new.xml" "lossy new file: not the formatted text"

# A symbolic link (relative, into another folder): its target is replaced
# in its own folder and the link stays. A dangling link gets its target.
mkdir "$work/a" "$work/b"
cp "$examples/broken.xml" "$work/b/doc.xml"
ln -s ../b/doc.xml "$work/a/link.xml"
"$tool" format "$examples/catalog.xml" -o "$work/a/link.xml" || fail "link: exit status $?"
[ -L "$work/a/link.xml" ] || fail "link: the link was replaced"
same "$expected/format_catalog.out" "$work/b/doc.xml" "link: target not written"
ln -s ../b/made.xml "$work/a/dangling.xml"
"$tool" format "$examples/catalog.xml" -o "$work/a/dangling.xml" || fail "dangling link: exit status $?"
[ -L "$work/a/dangling.xml" ] || fail "dangling link: the link was replaced"
same "$expected/format_catalog.out" "$work/b/made.xml" "dangling link: target not written"
leftovers "links"

# A FIFO, a device, a directory: refused without being opened (opening a
# FIFO that nobody reads would block until the timeout).
mkfifo "$work/fifo"
for target in "$work/fifo" /dev/null "$work/a"; do
    err=$(timeout 10 "$tool" format "$examples/catalog.xml" -o "$target" 2>&1)
    status=$?
    [ $status = 2 ] || fail "-o $target: exit status $status"
    case "$err" in
        "xmltree: cannot write '$target': it is a "*"; -o replaces regular files only") ;;
        *) fail "-o $target: message '$err'" ;;
    esac
done
leftovers "special files"

# Input from a FIFO: stats counts the bytes actually read.
cat "$examples/catalog.xml" >"$work/fifo" &
pids+=($!)
bytes=$(timeout 10 "$tool" stats "$work/fifo" | sed -n 's/^input bytes *//p')
[ "$bytes" = "$(stat -c %s "$examples/catalog.xml")" ] || fail "stats of a FIFO: '$bytes' bytes"

# A signal while the input is still coming: the temporary file goes, the
# target stays. (A background job has SIGINT ignored, so TERM and HUP.)
for sig in TERM HUP; do
    sleep 60 >"$work/fifo" &
    writer=$!
    pids+=($writer)
    "$tool" format - -o "$work/keep.xml" <"$work/fifo" &
    victim=$!
    for _ in $(seq 100); do
        find "$work" -name '.keep.xml.??????' | grep -q . && break
        sleep 0.05
    done
    find "$work" -name '.keep.xml.??????' | grep -q . || fail "$sig: no temporary file to remove"
    kill -"$sig" "$victim"
    wait "$victim"
    status=$?
    kill "$writer" 2>/dev/null
    [ $status -gt 128 ] || fail "$sig: exit status $status"
    same "$work/kept.xml" "$work/keep.xml" "$sig: target changed"
    leftovers "$sig"
done

# Past the file size limit: the write fails (SIGXFSZ is ignored), one line,
# nothing replaced, nothing left.
{
    echo "<list>"
    for i in $(seq 400); do echo "  <item n=\"$i\">entry $i</item>"; done
    echo "</list>"
} >"$work/long.xml"
err=$(ulimit -f 4; "$tool" format "$work/long.xml" -o "$work/keep.xml" 2>&1)
status=$?
[ $status = 2 ] || fail "file size limit: exit status $status"
[ "$err" = "xmltree: cannot write '$work/keep.xml': File too large" ] ||
    fail "file size limit: message '$err'"
same "$work/kept.xml" "$work/keep.xml" "file size limit: target changed"
leftovers "file size limit"
exit $failed
