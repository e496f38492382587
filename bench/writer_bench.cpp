// The XML writer on trees built in memory: a records document of 100,000
// elements with attributes and text, and a chain nested a million deep.
//
// Run (Release build):
//   cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release
//   cmake --build build-bench -j2 --target writer_bench
//   build-bench/bench/writer_bench
// bytes_per_second is bytes of XML written.

#include <benchmark/benchmark.h>

#include <cstdio>

#include "foundation/StringBuffer.h"
#include "xmltree/TreeNode.h"

namespace {

const char* const kWords[] = {"alpha",   "beta",    "invoice", "ledger", "north",
                              "pending", "summary", "branch",  "merge",  "caf\xc3\xa9"};
const char* const kDepts[] = {"sales", "finance", "ops", "r&d", "legal", "support"};

// 20,000 records of five elements each: a record with three attributes and
// four fields, one of which has an attribute and one of which needs escaping.
TreeNode* buildRecords(int elements) {
    TreeNode* root = TreeNode::createRoot("records");
    root->setDocEncoding("utf-8");
    char number[32];
    char text[128];
    for (int i = 1; i < elements; i += 5) {
        TreeNode* rec = TreeNode::createNode(root, "record");
        std::snprintf(number, sizeof number, "%d", i);
        rec->addAttribute("id", number);
        rec->addAttribute("dept", kDepts[i % 6]);
        rec->addAttribute("status", (i & 1) ? "open" : "closed");
        std::snprintf(text, sizeof text, "%s %s account %d", kWords[i % 10], kWords[(i / 10) % 10],
                      i);
        TreeNode::createNode2(rec, "name", text);
        std::snprintf(number, sizeof number, "%d.%02d", i % 977, i % 100);
        TreeNode::createNode2(rec, "amount", number)->addAttribute("currency", "EUR");
        std::snprintf(text, sizeof text, "Q%d review: total < limit & \"approved\" by %s",
                      i % 4 + 1, kWords[(i / 3) % 10]);
        TreeNode::createNode2(rec, "note", text);
        TreeNode::createNode(rec, "flag");
    }
    return root;
}

void BM_WriteRecords(benchmark::State& state) {
    TreeNode* root = buildRecords(100000);
    long long bytes = 0;
    for (auto _ : state) {
        StringBuffer out;
        root->createXML(out, 0, 0, false);
        bytes += out.getSize();
        benchmark::DoNotOptimize(out.getString());
    }
    state.SetBytesProcessed(bytes);
    root->deleteTree();
}
BENCHMARK(BM_WriteRecords)->Unit(benchmark::kMillisecond);

// The same document into a buffer already large enough: the writer alone,
// without the growth of the output buffer.
void BM_WriteRecordsPresized(benchmark::State& state) {
    TreeNode* root = buildRecords(100000);
    StringBuffer probe;
    root->createXML(probe, 0, 0, false);
    StringBuffer out(probe.getSize() + 1);
    for (auto _ : state) {
        out.clear();
        root->createXML(out, 0, 0, false);
        benchmark::DoNotOptimize(out.getString());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<long long>(probe.getSize()));
    root->deleteTree();
}
BENCHMARK(BM_WriteRecordsPresized)->Unit(benchmark::kMillisecond);

void BM_WriteMillionDeepChain(benchmark::State& state) {
    TreeNode* root = TreeNode::createRoot("e");
    TreeNode* node = root;
    for (int i = 1; i < 1000000; ++i)
        node = TreeNode::createNode(node, "e");
    long long bytes = 0;
    for (auto _ : state) {
        StringBuffer out;
        root->createXML(out, 0, 0, true);
        bytes += out.getSize();
        benchmark::DoNotOptimize(out.getString());
    }
    state.SetBytesProcessed(bytes);
    root->deleteTree();
}
BENCHMARK(BM_WriteMillionDeepChain)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace
