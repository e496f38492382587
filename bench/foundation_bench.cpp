// Growth costs of the foundation containers against their standard
// counterparts: a million pointer appends, and 10 MB of single-byte appends.
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "foundation/ExtPtrArray.h"
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

}  // namespace
