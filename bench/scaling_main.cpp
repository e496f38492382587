// Parses one XML file several times and prints one line of figures, so that
// bench/scaling.sh can show how time and memory grow with document size:
//
//   bytes  cold_parse_s  parse_s  write_s  held_bytes  peak_rss_bytes  elements
//
// Times are CPU time of this process, which a busy machine disturbs less than
// wall time. cold_parse_s is the first run, paying for the kernel's first
// touch of every heap page; parse_s and write_s are the best of the runs on a
// heap that is kept between runs (glibc would otherwise give small heaps back
// after each run and take the page faults again, which swamps the parser's
// own time at 1 to 3 MB). held_bytes is the heap the first parsed tree
// keeps once parsing is over; peak_rss_bytes is the high-water mark of
// the whole process, the file's own bytes included.

#include <malloc.h>
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "foundation/DataBuffer.h"
#include "foundation/LogBase.h"
#include "foundation/StringBuffer.h"
#include "xmltree/TreeNode.h"

namespace {

double cpuSeconds() {
    timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

size_t heapInUse() {
    return mallinfo2().uordblks;
}

long peakRssBytes() {
    FILE* f = std::fopen("/proc/self/status", "r");
    if (!f) return -1;
    char line[256];
    long kb = -1;
    while (std::fgets(line, sizeof line, f)) {
        if (std::strncmp(line, "VmHWM:", 6) == 0) kb = std::atol(line + 6);
    }
    std::fclose(f);
    return kb * 1024;
}

long countElements(TreeNode* root) {
    long count = 0;
    std::vector<TreeNode*> stack{root};
    while (!stack.empty()) {
        TreeNode* n = stack.back();
        stack.pop_back();
        ++count;
        for (int i = 0; i < n->getNumChildren(); ++i)
            stack.push_back(n->getChild(i));
    }
    return count;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s file.xml [runs]\n", argv[0]);
        return 2;
    }
    int runs = argc > 2 ? std::atoi(argv[2]) : 3;
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    LogNull log;
    DataBuffer data;
    if (!data.loadFileUtf8(argv[1], &log)) {
        std::fprintf(stderr, "cannot read %s\n", argv[1]);
        return 1;
    }
    StringBuffer out;
    double coldParse = 0;
    double bestParse = 1e30;
    double bestWrite = 1e30;
    size_t held = 0;
    long elements = 0;
    for (int r = 0; r < runs; ++r) {
        size_t before = heapInUse();
        double t0 = cpuSeconds();
        TreeNode* root = nullptr;
        if (!TreeNode::customParseUtf8Data(data, nullptr, log, &root, true) || !root) {
            std::fprintf(stderr, "parse failed\n");
            return 1;
        }
        double t1 = cpuSeconds();
        // The first run's figure: later runs reuse blocks the pool kept from
        // the tree before, which the heap count no longer sees as taken.
        if (r == 0) held = heapInUse() - before;
        out.clear();  // keeps its room: later runs time the writer, not the growth
        root->createXML(out, 0, 0, false);
        double t2 = cpuSeconds();
        elements = countElements(root);
        root->deleteTree();
        if (r == 0) coldParse = t1 - t0;
        if (t1 - t0 < bestParse) bestParse = t1 - t0;
        if (t2 - t1 < bestWrite) bestWrite = t2 - t1;
    }
    std::printf("%u %.4f %.4f %.4f %zu %ld %ld\n", data.getSize(), coldParse, bestParse, bestWrite,
                held, peakRssBytes(), elements);
    return 0;
}
