// Benchmarks of the ordering, search and extraction operations on wide trees:
// sorting a million children by tag, content and attribute, one breadth-first
// search, gathering all content, and destroying a tree whose children were
// put in random order (as a sort leaves them) against one in creation order.
//
// Run (Release build):
//   cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release
//   cmake --build build-bench -j2 --target ordering_bench
//   build-bench/bench/ordering_bench [--benchmark_filter=Sort]
// Figures are time per operation; items are children.

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <random>

#include "foundation/SmallObjectPool.h"
#include "foundation/StringBuffer.h"
#include "xmltree/TreeNode.h"

namespace {

// A root with n children whose tags, contents and "v" attributes are random
// 8-digit numbers, so that no sort meets presorted input.
std::unique_ptr<TreeNode> wideTree(int n) {
    std::unique_ptr<TreeNode> root(TreeNode::createRoot("root"));
    std::mt19937 rng(12345);
    char text[16];
    for (int i = 0; i < n; ++i) {
        std::snprintf(text, sizeof text, "k%08u", static_cast<unsigned>(rng() % 100000000u));
        TreeNode* kid = TreeNode::createNode2(root.get(), text, text + 1);
        kid->addAttribute("v", text + 1);
    }
    return root;
}

void shuffleChildren(TreeNode* root, std::mt19937& rng) {
    ExtPtrArray* kids = root->getChildrenArray();
    void** items = kids->getItems();
    std::shuffle(items, items + kids->getSize(), rng);
}

template <class SortOp>
void runSort(benchmark::State& state, SortOp sort) {
    const int n = static_cast<int>(state.range(0));
    std::unique_ptr<TreeNode> root = wideTree(n);
    std::mt19937 rng(7);
    for (auto _ : state) {
        state.PauseTiming();
        shuffleChildren(root.get(), rng);
        state.ResumeTiming();
        sort(root.get());
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_SortByContent(benchmark::State& state) {
    runSort(state, [](TreeNode* r) { r->sortByContent(1, false); });
}
void BM_SortByTagNoCase(benchmark::State& state) {
    runSort(state, [](TreeNode* r) { r->sortByTag(1, true); });
}
void BM_SortByAttribute(benchmark::State& state) {
    runSort(state, [](TreeNode* r) { r->sortByAttribute("v", 1, false); });
}
void BM_SortByAttributeInt(benchmark::State& state) {
    runSort(state, [](TreeNode* r) { r->sortByAttributeInt("v", 1); });
}

BENCHMARK(BM_SortByContent)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SortByTagNoCase)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SortByAttribute)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SortByAttributeInt)->Arg(1000000)->Unit(benchmark::kMillisecond);

// A search that visits every node and finds nothing.
void BM_SearchWholeTree(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    std::unique_ptr<TreeNode> root = wideTree(n);
    for (auto _ : state)
        benchmark::DoNotOptimize(root->searchForTag(nullptr, "absent"));
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_SearchWholeTree)->Arg(1000000)->Unit(benchmark::kMillisecond);

void BM_AccumulateContent(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    std::unique_ptr<TreeNode> root = wideTree(n);
    for (auto _ : state) {
        StringBuffer out;
        root->accumulateContent(out, nullptr);
        benchmark::DoNotOptimize(out.getString());
    }
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_AccumulateContent)->Arg(1000000)->Unit(benchmark::kMillisecond);

// Destroying a million children in creation order (arg 0) or after shuffling
// them (arg 1): the frees then reach the pool in random address order. The
// counters show what the process keeps once the trees are gone and trim()
// has run: slabs and resident memory.
long residentBytes() {
    long pages = 0, resident = 0;
    FILE* f = std::fopen("/proc/self/statm", "r");
    if (!f) return 0;
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(f);
    return resident * sysconf(_SC_PAGESIZE);
}

void BM_DestroyTree(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    const bool shuffled = state.range(1) != 0;
    std::mt19937 rng(7);
    for (auto _ : state) {
        state.PauseTiming();
        TreeNode* root = wideTree(n).release();
        if (shuffled) shuffleChildren(root, rng);
        state.ResumeTiming();
        root->deleteTree();
    }
    state.SetItemsProcessed(state.iterations() * n);
    SmallObjectPool::trim();
    state.counters["slabs_after_trim"] = static_cast<double>(SmallObjectPool::slabCount());
    state.counters["rss_MB_after_trim"] = static_cast<double>(residentBytes()) / 1e6;
}
BENCHMARK(BM_DestroyTree)
    ->ArgNames({"children", "shuffled"})
    ->Args({1000000, 0})
    ->Args({1000000, 1})
    ->Unit(benchmark::kMillisecond);

}  // namespace
