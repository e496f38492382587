// Long runs of one construct, each at n, 4n and 16n repetitions: parse,
// write and destroy must stay linear, so bytes_per_second (or the time per
// item) must stay flat across the three sizes. These are the shapes the
// fuzzers cannot reach, their inputs being a few kilobytes.
//
// Run (Release build): build/bench/shapes_bench
//   --benchmark_filter=Parse/attributes   one shape only

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

#include "xmltree/TreeNode.h"

namespace {

struct Shape {
    const char* name;
    std::function<std::string(int)> make;  // the document with n repetitions
};

std::string repeat(const std::string& open, const std::string& unit, int n,
                   const std::string& close) {
    std::string s = open;
    s.reserve(open.size() + unit.size() * static_cast<size_t>(n) + close.size());
    for (int i = 0; i < n; ++i)
        s += unit;
    return s + close;
}

const std::vector<Shape>& shapes() {
    static const std::vector<Shape> all = {
        {"attributes",
         [](int n) {
             std::string s = "<r";
             for (int i = 0; i < n; ++i)
                 s += " a" + std::to_string(i) + "=\"" + std::to_string(i) + "\"";
             return s + "/>";
         }},
        {"same-name attributes", [](int n) { return repeat("<r", " a=\"1\"", n, "/>"); }},
        {"attributes needing cleaning",
         [](int n) { return repeat("<r", " 9a=\"1\" b=\"2\"", n, "/>"); }},
        {"siblings", [](int n) { return repeat("<r>", "<c a='1'>t</c>", n, "</r>"); }},
        {"nesting", [](int n) { return repeat("", "<d>", n, "") + repeat("", "</d>", n, ""); }},
        {"unclosed nesting", [](int n) { return repeat("", "<d>", n, ""); }},
        {"mixed content", [](int n) { return repeat("<r>", "text<b/>", n, "</r>"); }},
        {"entity references", [](int n) { return repeat("<r>", "&lt;&amp;&#233;", n, "</r>"); }},
        {"CDATA sections", [](int n) { return repeat("<r>", "<![CDATA[x]]>", n, "</r>"); }},
        {"comments", [](int n) { return repeat("<r>", "<!-- c -->", n, "</r>"); }},
        {"instructions", [](int n) { return repeat("<r>", "<?p x?>", n, "</r>"); }},
        {"doctypes", [](int n) { return repeat("", "<!DOCTYPE d>", n, "<r/>"); }},
        {"top-level elements with instructions",
         [](int n) { return repeat("", "<?p x?><r a='1'><c/></r>", n, ""); }},
        {"declarations", [](int n) { return repeat("", "<?xml version='1.0'?>", n, "<r/>"); }},
        {"style sheets",
         [](int n) { return repeat("", "<?xml-stylesheet href='x'?>", n, "<r/>"); }},
        {"stray closing tags", [](int n) { return repeat("<r>", "</x", n, "</r>"); }},
        {"long text", [](int n) { return repeat("<r>", "0123456789abcdef", n, "</r>"); }},
        {"long value", [](int n) { return repeat("<r a='", "0123456789&amp;", n, "'/>"); }},
    };
    return all;
}

TreeNode* parse(const std::string& text) {
    TreeNode* root = nullptr;
    TreeNode::customParseStringN(text.data(), static_cast<int>(text.size()), nullptr, &root, true);
    return root;
}

void BM_Parse(benchmark::State& state, const Shape& shape) {
    const std::string text = shape.make(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        TreeNode* root = parse(text);
        state.PauseTiming();
        if (root) root->deleteTree();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
}

void BM_Write(benchmark::State& state, const Shape& shape) {
    TreeNode* root = parse(shape.make(static_cast<int>(state.range(0))));
    if (!root) {
        state.SkipWithError("no element");
        return;
    }
    size_t bytes = 0;
    for (auto _ : state) {
        StringBuffer out;
        root->createXML(out, 0, 0, false);
        bytes = static_cast<size_t>(out.getSize());
    }
    root->deleteTree();
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}

void BM_Destroy(benchmark::State& state, const Shape& shape) {
    const std::string text = shape.make(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        TreeNode* root = parse(text);
        state.ResumeTiming();
        if (root) root->deleteTree();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

// n, 4n and 16n.
const bool kRegistered = [] {
    for (const Shape& s : shapes()) {
        const std::string name = s.name;
        benchmark::RegisterBenchmark(("Parse/" + name).c_str(), BM_Parse, s)
            ->Arg(10000)
            ->Arg(40000)
            ->Arg(160000)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("Write/" + name).c_str(), BM_Write, s)
            ->Arg(10000)
            ->Arg(40000)
            ->Arg(160000)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("Destroy/" + name).c_str(), BM_Destroy, s)
            ->Arg(10000)
            ->Arg(40000)
            ->Arg(160000)
            ->Unit(benchmark::kMillisecond);
    }
    return true;
}();

}  // namespace
