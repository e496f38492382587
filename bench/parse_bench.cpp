// The parser on a synthetic records document of about 24 MB built in memory
// (attributes, text with entity references, CDATA, mixed content, comments,
// non-ASCII text, nesting six deep), in both whitespace modes, and on the
// corpus file bench/corpus/mime-info.xml.
//
// Run (Release build):
//   cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release
//   cmake --build build-bench -j2 --target parse_bench
//   build-bench/bench/parse_bench
// bytes_per_second is bytes of XML parsed.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "xmltree/TreeNode.h"

namespace {

const char* const kWords[] = {"alpha",  "beta",    "gamma",   "ledger",     "invoice", "north",
                              "review", "pending", "summary", "branch",     "merge",   "root",
                              "sigma",  "omega",   "audit",   "caf\xc3\xa9"};
const char* const kNames[] = {
    "Anna Berg",         "Chlo\xc3\xa9 Dubois", "Eva Nov\xc3\xa1kov\xc3\xa1",
    "Jonas Wei\xc3\x9f", "Hiro Tanaka",         "Kofi Mensah"};
const char* const kDepts[] = {"sales", "finance", "ops", "r&amp;d", "legal", "support"};

// xorshift64*: the same document on every run and platform.
struct Rng {
    uint64_t s = 0x9E3779B97F4A7C15ull;
    uint64_t next() {
        s ^= s >> 12;
        s ^= s << 25;
        s ^= s >> 27;
        return s * 0x2545F4914F6CDD1Dull;
    }
    unsigned below(unsigned n) { return static_cast<unsigned>((next() >> 11) % n); }
    const char* word() { return kWords[below(16)]; }
};

void sentence(std::string& out, Rng& r, int words) {
    for (int i = 0; i < words; ++i) {
        if (i) out += ' ';
        out += r.word();
    }
}

void appendRecord(std::string& out, Rng& r, int id) {
    char buf[160];
    std::snprintf(buf, sizeof buf, "  <record id=\"r%07d\" type=\"%s\" status=\"%s\"", id,
                  r.below(2) ? "invoice" : "order", r.below(2) ? "open" : "closed");
    out += buf;
    if (r.below(10) < 3) out += " label=\"a &quot;b&quot; &amp; c\"";
    out += ">\n    <title>";
    sentence(out, r, 3 + r.below(6));
    if (r.below(10) < 4) out += " &amp; more &lt;x&gt;";
    out += "</title>\n    <owner dept=\"";
    out += kDepts[r.below(6)];
    out += "\">\n      <name>";
    out += kNames[r.below(6)];
    out += "</name>\n      <email>someone@example.org</email>\n    </owner>\n";
    std::snprintf(buf, sizeof buf, "    <amount currency=\"EUR\">%u.%02u</amount>\n",
                  r.below(100000), r.below(100));
    out += buf;
    if (r.below(10) < 7) {
        out += "    <note>";
        sentence(out, r, 2 + r.below(5));
        out += " <b>";
        out += r.word();
        out += "</b> ";
        sentence(out, r, 1 + r.below(4));
        out += " <i>x <u>y</u> z</i> <code>a &lt; b &amp;&amp; c</code>.</note>\n";
    }
    if (r.below(100) < 35) {
        out += "    <script><![CDATA[if (x < 3 && y > 4) { s = \"a & b\"; }]]></script>\n";
    }
    unsigned items = r.below(5);
    std::snprintf(buf, sizeof buf, "    <items count=\"%u\">\n", items);
    out += buf;
    for (unsigned k = 0; k < items; ++k) {
        std::snprintf(buf, sizeof buf, "      <item sku=\"SKU-%04u\" qty=\"%u\">\n        <desc>",
                      r.below(10000), 1 + r.below(20));
        out += buf;
        sentence(out, r, 4 + r.below(10));
        out += "</desc>\n        <tags><tag>red</tag><tag>blue</tag></tags>\n      </item>\n";
    }
    out += "    </items>\n";
    if (r.below(4) == 0) out += "    <!-- reviewed by audit -->\n";
    out += "  </record>\n";
}

const std::string& recordsDocument() {
    static const std::string doc = [] {
        std::string s;
        const size_t target = 24u * 1000u * 1000u;
        s.reserve(target + 4096);
        s += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<records>\n";
        Rng r;
        for (int id = 1; s.size() < target; ++id)
            appendRecord(s, r, id);
        s += "</records>\n";
        return s;
    }();
    return doc;
}

void parseLoop(benchmark::State& state, const std::string& text, bool trim) {
    // One untimed parse first: the first run in a process pays for the
    // kernel handing out fresh pages, which says nothing about the parser.
    TreeNode* warm = nullptr;
    TreeNode::customParseStringN(text.data(), static_cast<int>(text.size()), nullptr, &warm, trim);
    if (warm) warm->deleteTree();
    for (auto _ : state) {
        TreeNode* root = nullptr;
        TreeNode::customParseStringN(text.data(), static_cast<int>(text.size()), nullptr, &root,
                                     trim);
        if (!root) {
            state.SkipWithError("no tree");
            break;
        }
        state.PauseTiming();
        root->deleteTree();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
}

void BM_ParseRecordsTrim(benchmark::State& state) {
    parseLoop(state, recordsDocument(), true);
}
BENCHMARK(BM_ParseRecordsTrim)->Unit(benchmark::kMillisecond)->MinTime(2.0);

void BM_ParseRecordsKeepWhitespace(benchmark::State& state) {
    parseLoop(state, recordsDocument(), false);
}
BENCHMARK(BM_ParseRecordsKeepWhitespace)->Unit(benchmark::kMillisecond)->MinTime(2.0);

void BM_ParseMimeInfo(benchmark::State& state) {
    static std::string text;
    if (text.empty()) {
        std::string path = std::string(XMLTREE_CORPUS_DIR) + "/mime-info.xml";
        if (FILE* f = std::fopen(path.c_str(), "rb")) {
            char buf[65536];
            size_t n;
            while ((n = std::fread(buf, 1, sizeof buf, f)) > 0)
                text.append(buf, n);
            std::fclose(f);
        }
    }
    if (text.empty()) {
        state.SkipWithError("mime-info.xml not found");
        return;
    }
    parseLoop(state, text, true);
}
BENCHMARK(BM_ParseMimeInfo)->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace
