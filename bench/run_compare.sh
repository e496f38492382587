#!/usr/bin/env bash
# Builds the peer comparison in a Release tree (build-bench/) and runs it.
#   bench/run_compare.sh                  corpus files + 30 MB generated records
#   bench/run_compare.sh a.xml b.xml      the given files
#   bench/run_compare.sh --rounds 3 ...   options go to the program (see compare.cpp)
#   bench/run_compare.sh --scaling        records documents of 1, 10, 30 and 100 MB
# Run it on an otherwise idle machine: the figures are wall-clock times.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DXMLTREE_BUILD_TESTS=OFF >/dev/null
cmake --build build-bench -j2 --target compare
exe=build-bench/bench/compare/compare
if [ ! -x "$exe" ]; then
    echo "compare was not built: install libpugixml-dev, libtinyxml2-dev and libxml2-dev" >&2
    exit 1
fi

# Generated documents go into the build tree (compare writes its 30 MB one
# into $TMPDIR), made again when the generator is newer.
gen=bench/corpus/gen_large.py
export TMPDIR=$PWD/build-bench/generated
mkdir -p "$TMPDIR"

if [ "${1:-}" = "--scaling" ]; then
    shift
    files=()
    for mb in 1 10 30 100; do
        f="$TMPDIR/xmltree-records-scaling-${mb}mb.xml"
        if [ ! -s "$f" ] || [ "$gen" -nt "$f" ]; then
            python3 "$gen" --mb "$mb" >"$f.part" && mv "$f.part" "$f"
        fi
        files+=("$f")
    done
    exec "$exe" "$@" "${files[@]}"
fi
exec "$exe" "$@"
