#!/usr/bin/env bash
# Shows that parsing grows linearly with document size: generates records
# documents of 1, 3, 10, 30 and 100 MB, parses each with bench/scaling_main
# (a Release build in build-scaling/), and prints time and memory per MB.
# Flat columns from top to bottom mean linear growth.
#
#   bench/scaling.sh [sizes in MB...]     default: 1 3 10 30 100
set -euo pipefail
cd "$(dirname "$0")/.."

sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(1 3 10 30 100)
gen=bench/corpus/gen_large.py

cmake -S . -B build-scaling -DCMAKE_BUILD_TYPE=Release -DXMLTREE_BUILD_TESTS=OFF \
    -DXMLTREE_BUILD_TOOLS=OFF >/dev/null
cmake --build build-scaling -j2 --target scaling_main >/dev/null

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

printf '| %6s | %10s | %10s | %8s | %9s | %10s | %10s | %8s | %11s |\n' "MB" "elements" \
    "cold ms/MB" "parse s" "ms / MB" "write s" "ms / MB" "held/in" "peak RSS MB"
printf '|%s|%s|%s|%s|%s|%s|%s|%s|%s|\n' "-------:" "-----------:" "-----------:" "---------:" \
    "----------:" "-----------:" "-----------:" "---------:" "------------:"
for mb in "${sizes[@]}"; do
    python3 "$gen" --mb "$mb" > "$tmp/doc.xml"
    runs=$(( mb >= 30 ? 3 : 30 / mb ))  # small documents get more runs: best-of is steadier
    read -r bytes cold parse write held peak elements \
        < <(build-scaling/bench/scaling_main "$tmp/doc.xml" "$runs")
    awk -v b="$bytes" -v c="$cold" -v p="$parse" -v w="$write" -v h="$held" -v r="$peak" \
        -v e="$elements" \
        'BEGIN { mb = b / 1e6;
                 printf "| %6.1f | %10d | %10.2f | %8.3f | %9.2f | %10.3f | %10.2f | %8.2f | %11.1f |\n",
                        mb, e, 1000 * c / mb, p, 1000 * p / mb, w, 1000 * w / mb, h / b, r / 1e6 }'
    rm -f "$tmp/doc.xml"
done
