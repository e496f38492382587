// Growth costs of the foundation containers against their standard
// counterparts: a million pointer appends, and 10 MB of single-byte appends;
// and the small-object pool against malloc for the blocks of a tree.
#include <cstdlib>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "foundation/ExtPtrArray.h"
#include "foundation/SmallObjectPool.h"
#include "foundation/StringBuffer.h"

namespace {

const int kPointers = 1000000;
const int kBytes = 10 * 1024 * 1024;

void BM_ExtPtrArrayAppend(benchmark::State& state) {
    for (auto _ : state) {
        ExtPtrArray a;
        for (int i = 0; i < kPointers; ++i) a.append(reinterpret_cast<void*>(static_cast<long>(i)));
        benchmark::DoNotOptimize(a.getItems());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPointers);
}
BENCHMARK(BM_ExtPtrArrayAppend)->Unit(benchmark::kMillisecond);

void BM_VectorPushBack(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<void*> v;
        for (int i = 0; i < kPointers; ++i) v.push_back(reinterpret_cast<void*>(static_cast<long>(i)));
        benchmark::DoNotOptimize(v.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPointers);
}
BENCHMARK(BM_VectorPushBack)->Unit(benchmark::kMillisecond);

void BM_StringBufferAppendChar(benchmark::State& state) {
    for (auto _ : state) {
        StringBuffer sb;
        for (int i = 0; i < kBytes; ++i) sb.appendChar(static_cast<char>('a' + (i & 15)));
        benchmark::DoNotOptimize(sb.getString());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kBytes));
}
BENCHMARK(BM_StringBufferAppendChar)->Unit(benchmark::kMillisecond);

void BM_StdStringPushBack(benchmark::State& state) {
    for (auto _ : state) {
        std::string s;
        for (int i = 0; i < kBytes; ++i) s.push_back(static_cast<char>('a' + (i & 15)));
        benchmark::DoNotOptimize(s.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kBytes));
}
BENCHMARK(BM_StdStringPushBack)->Unit(benchmark::kMillisecond);

// A million blocks of the sizes a tree is made of, taken and then all given
// back in the order taken: what a parse and the release of its tree cost the
// allocator, sweeps of the pool included.
const int kBlocks = 1000000;

size_t blockSize(int i) {
    static const size_t kSizes[] = {88, 48, 48, 24, 40, 120, 64, 32};
    return kSizes[i & 7];
}

void BM_SmallObjectPoolTakeAndGiveBack(benchmark::State& state) {
    std::vector<void*> blocks(kBlocks);
    for (auto _ : state) {
        for (int i = 0; i < kBlocks; ++i)
            blocks[i] = SmallObjectPool::allocate(blockSize(i));
        for (int i = 0; i < kBlocks; ++i)
            SmallObjectPool::deallocate(blocks[i], blockSize(i));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kBlocks);
}
BENCHMARK(BM_SmallObjectPoolTakeAndGiveBack)->Unit(benchmark::kMillisecond);

void BM_MallocTakeAndGiveBack(benchmark::State& state) {
    std::vector<void*> blocks(kBlocks);
    for (auto _ : state) {
        for (int i = 0; i < kBlocks; ++i)
            blocks[i] = std::malloc(blockSize(i));
        for (int i = 0; i < kBlocks; ++i)
            std::free(blocks[i]);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kBlocks);
}
BENCHMARK(BM_MallocTakeAndGiveBack)->Unit(benchmark::kMillisecond);

// Children arrays of a handful of elements each, made and destroyed.
const int kArrays = 100000;

void BM_ExtPtrArraySmallArrays(benchmark::State& state) {
    std::vector<ExtPtrArray*> arrays(kArrays);
    for (auto _ : state) {
        for (int i = 0; i < kArrays; ++i) {
            arrays[i] = new ExtPtrArray(5, 5);
            for (long k = 0; k < 3 + (i & 7); ++k)
                arrays[i]->append(reinterpret_cast<void*>(k));
        }
        for (ExtPtrArray* a : arrays)
            delete a;
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kArrays);
}
BENCHMARK(BM_ExtPtrArraySmallArrays)->Unit(benchmark::kMillisecond);

}  // namespace
