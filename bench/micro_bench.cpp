// Micro-benchmarks of the hot paths: the parse cursor's scans, entity
// decoding, text runs, attribute parsing, the writer's escaping, node
// creation and destruction, and whole-file parse and write of the corpus.
//
// Run (Release build):
//   cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release
//   cmake --build build-bench -j2 --target micro_bench
//   build-bench/bench/micro_bench [--benchmark_filter=Scan]
// Figures are bytes of input (or output) per second unless items are named.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "foundation/ParseEngine.h"
#include "foundation/StringBuffer.h"
#include "xmltree/TreeNode.h"

namespace {

std::string repeat(const std::string& piece, size_t times) {
    std::string s;
    s.reserve(piece.size() * times);
    for (size_t i = 0; i < times; ++i)
        s += piece;
    return s;
}

TreeNode* parseOrNull(const std::string& doc) {
    TreeNode* root = nullptr;
    TreeNode::customParseStringN(doc.data(), static_cast<int>(doc.size()), nullptr, &root, true);
    return root;
}

void freeTree(TreeNode* root) {
    if (root) root->deleteTree();
}

// ---- parse cursor scans ------------------------------------------------------
// Each scan runs over `len` ordinary bytes to the delimiter that ends it, the
// way a long element name, attribute value or text run is read.

void runCapture(benchmark::State& state, char fill, const char* end,
                void (ParseEngine::*scan)(const char*, StringBuffer&), const char* delims) {
    const int len = static_cast<int>(state.range(0));
    ParseEngine engine;
    engine.append((std::string(static_cast<size_t>(len), fill) + end).c_str());
    StringBuffer out;
    for (auto _ : state) {
        engine.cursor = 0;
        out.clear();
        (engine.*scan)(delims, out);
        benchmark::DoNotOptimize(out.getString());
    }
    if (engine.cursor != len) state.SkipWithError("scan stopped at the wrong place");
    state.SetBytesProcessed(state.iterations() * len);
}

void BM_Scan_Name_captureToNext7(benchmark::State& state) {
    runCapture(state, 'n', ">", &ParseEngine::captureToNext7, " \t\r\n/>>");
}
BENCHMARK(BM_Scan_Name_captureToNext7)->Arg(8)->Arg(64)->Arg(4096);

void BM_Scan_Value_captureToNext2(benchmark::State& state) {
    runCapture(state, 'v', "\"", &ParseEngine::captureToNext2, "\"\"");
}
BENCHMARK(BM_Scan_Value_captureToNext2)->Arg(8)->Arg(64)->Arg(4096);

void BM_Scan_Text_skipUntilChar(benchmark::State& state) {
    const int len = static_cast<int>(state.range(0));
    ParseEngine engine;
    engine.append((std::string(static_cast<size_t>(len), 't') + "<").c_str());
    for (auto _ : state) {
        engine.cursor = 0;
        engine.skipUntilChar('<');
        benchmark::DoNotOptimize(engine.cursor);
    }
    if (engine.cursor != len) state.SkipWithError("scan stopped at the wrong place");
    state.SetBytesProcessed(state.iterations() * len);
}
BENCHMARK(BM_Scan_Text_skipUntilChar)->Arg(8)->Arg(64)->Arg(4096);

// ---- parsing one construct at a time ----------------------------------------

void runParse(benchmark::State& state, const std::string& doc) {
    for (auto _ : state) {
        TreeNode* root = parseOrNull(doc);
        benchmark::DoNotOptimize(root);
        state.PauseTiming();
        freeTree(root);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(doc.size()));
}

// One element holding a long text, with or without entity references.
void BM_Parse_LongText(benchmark::State& state) {
    const bool entities = state.range(0) != 0;
    std::string piece = entities ? "one &lt;two&gt; &amp; &quot;three&quot; four "
                                 : "one two three four five six seven eight nine ";
    runParse(state, "<a>" + repeat(piece, 20000) + "</a>");
}
BENCHMARK(BM_Parse_LongText)->ArgName("entities")->Arg(0)->Arg(1);

// Many short text runs: record-like leaves, as in data files.
void BM_Parse_ShortTextRuns(benchmark::State& state) {
    runParse(state, "<r>" + repeat("\n  <field>short text</field>", 20000) + "\n</r>");
}
BENCHMARK(BM_Parse_ShortTextRuns);

// Mixed content: text runs joined around inline children.
void BM_Parse_MixedContent(benchmark::State& state) {
    runParse(state, "<p>" + repeat("some words <b>bold</b> more words <i>it</i> ", 5000) + "</p>");
}
BENCHMARK(BM_Parse_MixedContent);

// One element with 1,000 attributes.
void BM_Parse_Attributes1000(benchmark::State& state) {
    std::string doc = "<e";
    for (int i = 0; i < 1000; ++i) {
        doc += " attr" + std::to_string(i) + "=\"value number " + std::to_string(i) + "\"";
    }
    doc += "/>";
    runParse(state, doc);
}
BENCHMARK(BM_Parse_Attributes1000);

// Many empty elements with a few attributes each, as in code lists.
void BM_Parse_AttributeElements(benchmark::State& state) {
    runParse(state,
             "<list>" +
                 repeat("\n\t<entry id=\"abc\" status=\"Active\" name=\"Some Name\"/>", 20000) +
                 "\n</list>");
}
BENCHMARK(BM_Parse_AttributeElements);

// ---- writer ---------------------------------------------------------------------

// Content escaping alone: outputContent over a long text.
void BM_Write_Escape(benchmark::State& state) {
    const bool specials = state.range(0) != 0;
    std::string piece = specials ? "a < b && c > d \"q\" 'x' " : "plain text without specials ";
    TreeNode* root = TreeNode::createRoot("a");
    std::string text = repeat(piece, 10000);
    root->setContentUtf8(text.c_str());
    StringBuffer out;
    for (auto _ : state) {
        out.clear();
        root->outputContent(out);
        benchmark::DoNotOptimize(out.getString());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
    freeTree(root);
}
BENCHMARK(BM_Write_Escape)->ArgName("specials")->Arg(0)->Arg(1);

// Attribute values go through their own escaping; long path data in SVG
// files makes this the writer's hottest loop there.
void BM_Write_AttributeValues(benchmark::State& state) {
    const bool specials = state.range(0) != 0;
    std::string piece = specials ? "a<b & \"c\" > d " : "M10.5,20.25 L30,40 ";
    std::string value = repeat(piece, 200);
    TreeNode* root = TreeNode::createRoot("svg");
    for (int i = 0; i < 10; ++i)
        root->addAttribute(("d" + std::to_string(i)).c_str(), value.c_str());
    StringBuffer out;
    for (auto _ : state) {
        out.clear();
        root->openTag(out, 0);
        benchmark::DoNotOptimize(out.getString());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(value.size()) * 10);
    freeTree(root);
}
BENCHMARK(BM_Write_AttributeValues)->ArgName("specials")->Arg(0)->Arg(1);

// A wide tree of small elements with an attribute and short content.
void BM_Write_WideTree(benchmark::State& state) {
    TreeNode* root = TreeNode::createRoot("records");
    for (int i = 0; i < 20000; ++i) {
        TreeNode* child = TreeNode::createNode2(root, "record", "short content");
        if (child) child->addAttribute("id", "r12345");
    }
    StringBuffer out;
    for (auto _ : state) {
        out.clear();
        root->createXML(out, 0, 0, false);
        benchmark::DoNotOptimize(out.getString());
    }
    state.SetBytesProcessed(state.iterations() * out.getSize());
    freeTree(root);
}
BENCHMARK(BM_Write_WideTree);

// ---- node creation and destruction -------------------------------------------

constexpr int kManyChildren = 100000;

TreeNode* buildWide(int n) {
    TreeNode* root = TreeNode::createRoot("root");
    for (int i = 0; i < n; ++i)
        TreeNode::createNode(root, "child");
    return root;
}

void BM_Nodes_Create100k(benchmark::State& state) {
    for (auto _ : state) {
        TreeNode* root = buildWide(kManyChildren);
        benchmark::DoNotOptimize(root);
        state.PauseTiming();
        freeTree(root);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kManyChildren);
}
BENCHMARK(BM_Nodes_Create100k)->Unit(benchmark::kMillisecond);

void BM_Nodes_DeleteTree100k(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        TreeNode* root = buildWide(kManyChildren);
        state.ResumeTiming();
        freeTree(root);
    }
    state.SetItemsProcessed(state.iterations() * kManyChildren);
}
BENCHMARK(BM_Nodes_DeleteTree100k)->Unit(benchmark::kMillisecond);

// Records of a few fields each, the shape of a data file: a tree of some
// 30 MB of small blocks, so that releasing it has the pool sweep its free
// lists many times over.
constexpr int kRecords = 20000;

TreeNode* buildRecords(int n) {
    TreeNode* root = TreeNode::createRoot("records");
    for (int i = 0; i < n; ++i) {
        TreeNode* record = TreeNode::createNode(root, "record");
        record->addAttribute("id", "r0000001");
        TreeNode::createNode2(record, "title", "kappa record ledger sibling");
        TreeNode::createNode2(record, "created", "2024-07-22T05:49:05Z");
        TreeNode* owner = TreeNode::createNode(record, "owner");
        TreeNode::createNode2(owner, "name", "Anna Berg");
        TreeNode::createNode2(owner, "email", "anna@example.org");
        TreeNode* items = TreeNode::createNode(record, "items");
        for (int k = 0; k < 3; ++k)
            TreeNode::createNode2(items, "item", "report summary record supplier node root");
    }
    return root;
}

void BM_Nodes_DeleteRecords(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        TreeNode* root = buildRecords(kRecords);
        state.ResumeTiming();
        freeTree(root);
    }
    state.SetItemsProcessed(state.iterations() * kRecords * 10);
}
BENCHMARK(BM_Nodes_DeleteRecords)->Unit(benchmark::kMillisecond);

// ---- whole corpus files -------------------------------------------------------

std::string readCorpus(const char* name) {
    std::string path = std::string(XMLTREE_CORPUS_DIR) + "/" + name;
    std::string data;
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        char block[1 << 16];
        size_t n;
        while ((n = std::fread(block, 1, sizeof block, f)) > 0)
            data.append(block, n);
        std::fclose(f);
    }
    return data;
}

void BM_Corpus_Parse(benchmark::State& state, const char* name) {
    std::string data = readCorpus(name);
    if (data.empty()) {
        state.SkipWithError("corpus file missing");
        return;
    }
    runParse(state, data);
}

void BM_Corpus_Write(benchmark::State& state, const char* name) {
    TreeNode* root = parseOrNull(readCorpus(name));
    if (!root) {
        state.SkipWithError("corpus file missing or without elements");
        return;
    }
    StringBuffer out;
    for (auto _ : state) {
        out.clear();
        root->createXML(out, 0, 0, false);
        benchmark::DoNotOptimize(out.getString());
    }
    state.SetBytesProcessed(state.iterations() * out.getSize());
    freeTree(root);
}

// Registered at start-up, one parse and one write benchmark per file.
const bool kCorpusRegistered = [] {
    for (const char* name : {"mime-info.xml", "iso-639-3.xml", "iso-3166-2.xml",
                             "requests-logo.svg", "cyclonedx-bom.xml"}) {
        benchmark::RegisterBenchmark((std::string("BM_Corpus_Parse/") + name).c_str(),
                                     BM_Corpus_Parse, name)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((std::string("BM_Corpus_Write/") + name).c_str(),
                                     BM_Corpus_Write, name)
            ->Unit(benchmark::kMillisecond);
    }
    return true;
}();

}  // namespace
