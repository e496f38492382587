#!/usr/bin/env bash
# Builds one fuzz target with clang++ and runs it with its seed corpus.
#
#   fuzz/run.sh <name> <seconds> [extra libFuzzer flags...]
#
# <name> selects fuzz/fuzz_<name>.cpp, the seeds in fuzz/corpus/<name>/ and,
# when present, the dictionary fuzz/<name>.dict.
# The target is built into build-fuzz/ (outside the CMake build) from the
# library sources; the seeds are copied into a scratch corpus there so the
# repository stays clean. Exits non-zero on any crash, leak or failed check.
set -euo pipefail
cd "$(dirname "$0")/.."

name=${1:?usage: fuzz/run.sh <name> <seconds>}
seconds=${2:?usage: fuzz/run.sh <name> <seconds>}
shift 2
src=fuzz/fuzz_$name.cpp
[ -f "$src" ] || { echo "no such fuzz target: $src" >&2; exit 2; }

out=build-fuzz
mkdir -p "$out/obj"
flags=(-std=c++17 -O1 -g -fno-omit-frame-pointer -I.
       -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined)

# The library objects are shared by every target; rebuild only what changed.
objs=()
for f in foundation/*.cpp xmltree/*.cpp; do
    o="$out/obj/$(echo "$f" | tr / _).o"
    if [ ! -f "$o" ] || [ "$f" -nt "$o" ] || [ -n "$(find foundation xmltree -name '*.h' -newer "$o")" ]; then
        clang++ "${flags[@]}" -c "$f" -o "$o"
    fi
    objs+=("$o")
done
clang++ "${flags[@]}" -fsanitize=fuzzer "$src" "${objs[@]}" -o "$out/fuzz_$name"

corpus="$out/corpus-$name"
mkdir -p "$corpus"
if [ -d "fuzz/corpus/$name" ]; then
    cp -n fuzz/corpus/"$name"/* "$corpus"/ 2>/dev/null || true
fi
mkdir -p "$out/artifacts-$name"
dict=()
[ -f "fuzz/$name.dict" ] && dict=(-dict="fuzz/$name.dict")
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:halt_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
"$out/fuzz_$name" "$corpus" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="$out/artifacts-$name/" -print_final_stats=1 ${dict[@]+"${dict[@]}"} "$@"
