// compare: parse speed, parse-and-free speed, write speed and heap held per
// element of xmltree against pugixml, tinyxml2 and libxml2, all measured in
// one process.
//
// How to run it (Release build, on an otherwise idle machine):
//   bench/run_compare.sh                       corpus files + 30 MB generated records
//   bench/run_compare.sh a.xml b.xml           the given files instead
//   build-bench/bench/compare/compare [--rounds N] [--min-time SECONDS] [files...]
//
// Without file arguments it reads the five corpus files and a records
// document made by the corpus's gen_large.py (default arguments, about 30 MB),
// which it generates into $TMPDIR (or /tmp) when missing or older than the
// script.
//
// Method. One measurement repeats one operation until at least --min-time
// seconds (default 0.3) of this thread's CPU time have gone by and keeps the
// mean CPU time of one operation; an untimed run of the same operation comes
// first, so that no library is timed on pages just handed back by another.
// In each round the libraries take turns (ours, pugixml, tinyxml2, libxml2,
// starting one further each round), so that drift in the machine's speed
// hits all alike; the MB/s shown are medians over the rounds (default 7; 11
// for files under 1 MB), and each ratio is the median over the rounds of
// that round's ratio. Freeing trees and output buffers happens outside the
// timed region, except in the parse + free column.
//   parse: from an in-memory copy of the file; ours customParseStringN with
//          whitespace trimming on, pugixml load_buffer, tinyxml2 Parse,
//          libxml2 xmlReadMemory with default options. When libxml2 rejects a
//          file (it is strict about well-formedness), its figures come from
//          XML_PARSE_RECOVER and carry a '*'.
//   parse + free: the same parse followed by destroying the tree; ours
//          deleteTree, pugixml and tinyxml2 deleting the document, libxml2
//          xmlFreeDoc.
//   write: indented output into a fresh growable buffer; ours createXML into a
//          StringBuffer, pugixml save through a writer into a std::string,
//          tinyxml2 XMLPrinter, libxml2 xmlDocDumpFormatMemory.
//   heap:  bytes malloc reports in use (mallinfo2 uordblks + hblkhd, so chunk
//          headers and rounding count) after the parse minus before, over the
//          number of elements found by walking that library's tree. Malloc
//          calls made during the parse are counted as well.
// Ratios are our time (or bytes) over the peer's: below 1 means ours is
// faster (or smaller). The geometric mean runs over the files.

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <malloc.h>
#include <sys/stat.h>
#include <tinyxml2.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "bench/compare/CompareMeasure.h"
#include "foundation/SmallObjectPool.h"
#include "foundation/StringBuffer.h"
#include "xmltree/TreeNode.h"

// ---- allocation counting -----------------------------------------------------
// The program's own malloc family forwards to glibc's and counts calls while
// g_countAllocs is set. Sanitizer builds bring their own allocator, so there
// the count is simply not available.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer)
#define COMPARE_NO_ALLOC_HOOK 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || !defined(__GLIBC__)
#define COMPARE_NO_ALLOC_HOOK 1
#endif

static bool g_countAllocs = false;
static size_t g_allocCalls = 0;

#ifndef COMPARE_NO_ALLOC_HOOK
extern "C" {
void* __libc_malloc(size_t n);
void* __libc_calloc(size_t count, size_t n);
void* __libc_realloc(void* p, size_t n);
void __libc_free(void* p);

void* malloc(size_t n) noexcept {
    if (g_countAllocs) ++g_allocCalls;
    return __libc_malloc(n);
}
void* calloc(size_t count, size_t n) noexcept {
    if (g_countAllocs) ++g_allocCalls;
    return __libc_calloc(count, n);
}
void* realloc(void* p, size_t n) noexcept {
    if (g_countAllocs) ++g_allocCalls;
    return __libc_realloc(p, n);
}
void free(void* p) noexcept {
    __libc_free(p);
}
}
static constexpr bool kAllocCountKnown = true;
#else
static constexpr bool kAllocCountKnown = false;
#endif

namespace {

using benchcompare::GeoMean;
using benchcompare::HeapBreakdown;
using benchcompare::median;

// Timing uses the thread's CPU clock (user and system time, page faults
// included): the machines this runs on are shared, and wall-clock time would
// charge other processes' work to whichever library happened to be running.
double cpuNow() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

size_t heapInUse() {
    struct mallinfo2 mi = mallinfo2();
    return mi.uordblks + mi.hblkhd;
}

// ---- the libraries behind one interface ------------------------------------

class Lib {
  public:
    virtual ~Lib() = default;
    virtual const char* name() const = 0;
    // Builds a tree from the bytes; false when the library gives none.
    virtual bool parse(const char* data, size_t len) = 0;
    virtual void releaseTree() = 0;
    // Writes the tree into a fresh buffer and returns its size in bytes.
    virtual size_t write() = 0;
    virtual void releaseOutput() = 0;
    virtual size_t countElements() = 0;
    // A note printed next to the figures ("*" when a fallback was used).
    virtual const char* mark() const { return ""; }
};

class OursLib : public Lib {
  public:
    ~OursLib() override {
        releaseOutput();
        releaseTree();
    }
    const char* name() const override { return "xmltree"; }
    bool parse(const char* data, size_t len) override {
        return TreeNode::customParseStringN(data, static_cast<int>(len), nullptr, &root_, true) &&
               root_ != nullptr;
    }
    void releaseTree() override {
        if (root_) root_->deleteTree();
        root_ = nullptr;
    }
    size_t write() override {
        out_ = std::make_unique<StringBuffer>();
        root_->createXML(*out_, 0, 0, false);
        return static_cast<size_t>(out_->getSize());
    }
    void releaseOutput() override { out_.reset(); }
    size_t countElements() override { return benchcompare::countElements(root_); }
    TreeNode* root() const { return root_; }
    const StringBuffer* output() const { return out_.get(); }

  private:
    TreeNode* root_ = nullptr;
    std::unique_ptr<StringBuffer> out_;
};

class PugiLib : public Lib {
  public:
    const char* name() const override { return "pugixml"; }
    bool parse(const char* data, size_t len) override {
        doc_ = std::make_unique<pugi::xml_document>();
        return static_cast<bool>(doc_->load_buffer(data, len));
    }
    void releaseTree() override { doc_.reset(); }
    size_t write() override {
        writer_ = std::make_unique<StringWriter>();
        doc_->save(*writer_);
        return writer_->text.size();
    }
    void releaseOutput() override { writer_.reset(); }
    size_t countElements() override {
        size_t n = 0;
        std::vector<pugi::xml_node> stack{doc_->root()};
        while (!stack.empty()) {
            pugi::xml_node node = stack.back();
            stack.pop_back();
            if (node.type() == pugi::node_element) ++n;
            for (pugi::xml_node c = node.first_child(); c; c = c.next_sibling()) {
                stack.push_back(c);
            }
        }
        return n;
    }

  private:
    struct StringWriter : pugi::xml_writer {
        std::string text;
        void write(const void* data, size_t size) override {
            text.append(static_cast<const char*>(data), size);
        }
    };
    std::unique_ptr<pugi::xml_document> doc_;
    std::unique_ptr<StringWriter> writer_;
};

class TinyLib : public Lib {
  public:
    const char* name() const override { return "tinyxml2"; }
    bool parse(const char* data, size_t len) override {
        doc_ = std::make_unique<tinyxml2::XMLDocument>();
        return doc_->Parse(data, len) == tinyxml2::XML_SUCCESS;
    }
    void releaseTree() override { doc_.reset(); }
    size_t write() override {
        printer_ = std::make_unique<tinyxml2::XMLPrinter>();
        doc_->Print(printer_.get());
        return static_cast<size_t>(printer_->CStrSize() - 1);  // CStrSize counts the NUL
    }
    void releaseOutput() override { printer_.reset(); }
    size_t countElements() override {
        size_t n = 0;
        std::vector<const tinyxml2::XMLElement*> stack;
        for (auto* e = doc_->FirstChildElement(); e; e = e->NextSiblingElement()) {
            stack.push_back(e);
        }
        while (!stack.empty()) {
            const tinyxml2::XMLElement* e = stack.back();
            stack.pop_back();
            ++n;
            for (auto* c = e->FirstChildElement(); c; c = c->NextSiblingElement()) {
                stack.push_back(c);
            }
        }
        return n;
    }

  private:
    std::unique_ptr<tinyxml2::XMLDocument> doc_;
    std::unique_ptr<tinyxml2::XMLPrinter> printer_;
};

void quietGeneric(void*, const char*, ...) {}
void quietStructured(void*, xmlErrorPtr) {}

class Libxml2Lib : public Lib {
  public:
    Libxml2Lib() {
        xmlInitParser();
        xmlSetGenericErrorFunc(nullptr, quietGeneric);
        xmlSetStructuredErrorFunc(nullptr, quietStructured);
    }
    ~Libxml2Lib() override {
        releaseOutput();
        releaseTree();
        xmlCleanupParser();
    }
    const char* name() const override { return "libxml2"; }
    bool parse(const char* data, size_t len) override {
        doc_ = xmlReadMemory(data, static_cast<int>(len), "in-memory.xml", nullptr, options_);
        return doc_ != nullptr;
    }
    void releaseTree() override {
        if (doc_) xmlFreeDoc(doc_);
        doc_ = nullptr;
    }
    size_t write() override {
        int size = 0;
        xmlDocDumpFormatMemory(doc_, &out_, &size, 1);
        return static_cast<size_t>(size);
    }
    void releaseOutput() override {
        if (out_) xmlFree(out_);
        out_ = nullptr;
    }
    size_t countElements() override {
        size_t n = 0;
        std::vector<xmlNodePtr> stack;
        for (xmlNodePtr c = doc_->children; c; c = c->next)
            stack.push_back(c);
        while (!stack.empty()) {
            xmlNodePtr node = stack.back();
            stack.pop_back();
            if (node->type != XML_ELEMENT_NODE) continue;
            ++n;
            for (xmlNodePtr c = node->children; c; c = c->next)
                stack.push_back(c);
        }
        return n;
    }
    const char* mark() const override { return options_ ? "*" : ""; }
    // Strict parsing first; a rejected file is measured in recovery mode.
    void setRecover(bool on) { options_ = on ? XML_PARSE_RECOVER : 0; }

  private:
    xmlDocPtr doc_ = nullptr;
    xmlChar* out_ = nullptr;
    int options_ = 0;
};

// ---- measurement -------------------------------------------------------------

struct Settings {
    int rounds = 0;  // 0: chosen by file size
    double minTime = 0.3;
};

// Mean seconds of one parse, repeated for at least minTime. One untimed parse
// comes first: the other libraries' trees have just been freed, and what that
// leaves malloc holding (or gives back to the system) would otherwise decide
// how many fresh pages the first parse touches. On large documents one such
// cold run can be most of the measurement.
double timeParse(Lib& lib, const std::string& data, double minTime) {
    lib.parse(data.data(), data.size());
    lib.releaseTree();
    double timed = 0;
    int runs = 0;
    double start = cpuNow();
    do {
        double t0 = cpuNow();
        lib.parse(data.data(), data.size());
        timed += cpuNow() - t0;
        lib.releaseTree();
        ++runs;
    } while (cpuNow() - start < minTime);
    return timed / runs;
}

// Mean seconds of one parse followed by freeing the tree, timed together,
// repeated for at least minTime after one untimed run.
double timeParseFree(Lib& lib, const std::string& data, double minTime) {
    lib.parse(data.data(), data.size());
    lib.releaseTree();
    int runs = 0;
    double start = cpuNow();
    double now = start;
    do {
        lib.parse(data.data(), data.size());
        lib.releaseTree();
        ++runs;
        now = cpuNow();
    } while (now - start < minTime);
    return (now - start) / runs;
}

// Mean seconds of writing the whole tree, repeated for at least minTime.
double timeWrite(Lib& lib, const std::string& data, double minTime) {
    if (!lib.parse(data.data(), data.size())) {
        lib.releaseTree();
        return 0;
    }
    lib.write();  // untimed, as for the parse
    lib.releaseOutput();
    double timed = 0;
    int runs = 0;
    double start = cpuNow();
    do {
        double t0 = cpuNow();
        lib.write();
        timed += cpuNow() - t0;
        lib.releaseOutput();
        ++runs;
    } while (cpuNow() - start < minTime);
    lib.releaseTree();
    return timed / runs;
}

struct Figures {
    bool parsed = false;
    size_t elements = 0;
    size_t heapBytes = 0;
    size_t allocCalls = 0;
    size_t outputBytes = 0;
    double parseSec = 0;
    double parseFreeSec = 0;
    double writeSec = 0;
    // Ours over this library's, per round, the median over the rounds.
    double parseRatio = 0;
    double parseFreeRatio = 0;
    double writeRatio = 0;
    std::string mark;
};

// Where our heap goes, per element: each object's malloc chunk summed by kind.
void printBreakdown(const HeapBreakdown& b, const Figures& f) {
    double n = b.nodes ? static_cast<double>(b.nodes) : 1;
    size_t known = b.knownBytes();
    size_t rest = f.heapBytes > known ? f.heapBytes - known : 0;
    std::printf(
        "  xmltree heap per element: node %.1f (sizeof %zu), tag %.1f (%zu buffers, %zu "
        "on heap), content %.1f (%zu buffers, %zu on heap), attribute set objects %.1f "
        "(%zu sets), children arrays %.1f (%zu), rest (attribute storage, prolog) %.1f\n",
        b.nodeBytes / n, sizeof(TreeNode), b.tagBytes / n, b.tags, b.tagHeapTexts,
        b.contentBytes / n, b.contents, b.contentHeapTexts, b.attrSetBytes / n, b.attrSets,
        b.childArrayBytes / n, b.childArrays, rest / n);
}

// Heap, allocation count and element count of one parse, outside any timing.
Figures measureHeap(Lib& lib, const std::string& data, HeapBreakdown* breakdown) {
    Figures f;
    // Slabs freed by earlier trees go back to malloc first, so that the figure
    // is what this parse takes rather than what it reuses.
    SmallObjectPool::trim();
    size_t before = heapInUse();
    g_allocCalls = 0;
    g_countAllocs = true;
    f.parsed = lib.parse(data.data(), data.size());
    g_countAllocs = false;
    size_t after = heapInUse();
    f.allocCalls = g_allocCalls;
    f.heapBytes = after > before ? after - before : 0;
    if (f.parsed) {
        f.elements = lib.countElements();
        f.outputBytes = lib.write();
        lib.releaseOutput();
        if (breakdown) *breakdown = benchcompare::breakDown(static_cast<OursLib&>(lib).root());
    }
    lib.releaseTree();
    f.mark = lib.mark();
    return f;
}

// Our written text must read back to as many elements as the tree had.
void checkRoundTrip(OursLib& ours, const std::string& data, size_t elements) {
    if (!ours.parse(data.data(), data.size())) return;
    ours.write();
    std::string text(ours.output()->getString(), static_cast<size_t>(ours.output()->getSize()));
    ours.releaseOutput();
    ours.releaseTree();
    OursLib again;
    if (!again.parse(text.data(), text.size()) || again.countElements() != elements) {
        std::printf("  WARNING: xmltree's output does not read back to %zu elements\n", elements);
    }
}

bool readFile(const std::string& path, std::string& out) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return false;
    out.clear();
    char block[1 << 16];
    size_t n;
    while ((n = std::fread(block, 1, sizeof block, f)) > 0)
        out.append(block, n);
    std::fclose(f);
    return true;
}

std::string baseName(const std::string& path) {
    size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The generated records document, made when missing or older than its script.
std::string recordsFile() {
    const char* tmp = std::getenv("TMPDIR");
    std::string dir = (tmp && *tmp) ? tmp : "/tmp";
    std::string path = dir + "/xmltree-records-30mb.xml";
    std::string script = std::string(XMLTREE_CORPUS_DIR) + "/gen_large.py";
    struct stat out, src;
    bool stale = stat(path.c_str(), &out) != 0 || out.st_size == 0 ||
                 (stat(script.c_str(), &src) == 0 && src.st_mtime > out.st_mtime);
    if (stale) {
        std::fprintf(stderr, "generating %s\n", path.c_str());
        std::string cmd = "python3 '" + script + "' > '" + path + ".part' && mv '" + path +
                          ".part' '" + path + "'";
        if (std::system(cmd.c_str()) != 0) {
            std::fprintf(stderr, "could not generate %s\n", path.c_str());
            return "";
        }
    }
    return path;
}

std::vector<std::string> defaultFiles() {
    std::vector<std::string> files;
    for (const char* name : {"mime-info.xml", "iso-639-3.xml", "iso-3166-2.xml",
                             "requests-logo.svg", "cyclonedx-bom.xml"}) {
        files.push_back(std::string(XMLTREE_CORPUS_DIR) + "/" + name);
    }
    std::string records = recordsFile();
    if (!records.empty()) files.push_back(records);
    return files;
}

struct FileResult {
    std::string name;
    size_t bytes = 0;
    std::vector<Figures> libs;  // in the order of the libraries
};

double mbps(size_t bytes, double sec) {
    return sec > 0 ? bytes / sec / 1e6 : 0;
}

FileResult measureFile(const std::string& path, std::vector<std::unique_ptr<Lib>>& libs,
                       const Settings& settings) {
    FileResult r;
    r.name = baseName(path);
    std::string data;
    if (!readFile(path, data)) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return r;
    }
    r.bytes = data.size();
    auto* xml2 = static_cast<Libxml2Lib*>(libs[3].get());
    xml2->setRecover(false);
    HeapBreakdown breakdown;
    for (auto& lib : libs) {
        bool ours = lib.get() == libs[0].get();
        r.libs.push_back(measureHeap(*lib, data, ours ? &breakdown : nullptr));
        if (lib.get() == xml2 && !r.libs.back().parsed) {
            std::printf(
                "  libxml2 rejects %s with default options; measuring with "
                "XML_PARSE_RECOVER (*)\n",
                r.name.c_str());
            xml2->setRecover(true);
            r.libs.back() = measureHeap(*lib, data, nullptr);
        }
    }
    int rounds = settings.rounds ? settings.rounds : (data.size() < 1000000 ? 11 : 7);
    std::vector<std::vector<double>> parse(libs.size()), parseFree(libs.size()),
        write(libs.size());
    // The library that goes first changes each round, so that none is always
    // timed right after the same other one.
    const size_t n = libs.size();
    for (int round = 0; round < rounds; ++round) {
        const size_t first = static_cast<size_t>(round) % n;
        for (size_t k = 0, i = first; k < n; ++k, i = (i + 1) % n) {
            parse[i].push_back(timeParse(*libs[i], data, settings.minTime));
        }
        for (size_t k = 0, i = first; k < n; ++k, i = (i + 1) % n) {
            if (r.libs[i].parsed) {
                parseFree[i].push_back(timeParseFree(*libs[i], data, settings.minTime));
            }
        }
        for (size_t k = 0, i = first; k < n; ++k, i = (i + 1) % n) {
            if (r.libs[i].parsed) write[i].push_back(timeWrite(*libs[i], data, settings.minTime));
        }
    }
    // A ratio is taken within each round, where both figures met the same
    // state of the machine, and the median of those is kept: on a shared
    // machine that moves far less than a ratio of two medians.
    auto ratio = [](const std::vector<double>& ours, const std::vector<double>& peer) {
        std::vector<double> each;
        for (size_t k = 0; k < ours.size() && k < peer.size(); ++k)
            if (ours[k] > 0 && peer[k] > 0) each.push_back(ours[k] / peer[k]);
        return each.empty() ? 0.0 : median(each);
    };
    for (size_t i = 0; i < n; ++i) {
        Figures& f = r.libs[i];
        f.parseSec = f.parsed ? median(parse[i]) : 0;
        f.parseFreeSec = median(parseFree[i]);
        f.writeSec = median(write[i]);
        if (f.parsed && r.libs[0].parsed) {
            f.parseRatio = ratio(parse[0], parse[i]);
            f.parseFreeRatio = ratio(parseFree[0], parseFree[i]);
            f.writeRatio = ratio(write[0], write[i]);
        }
    }
    std::printf("%s: %zu bytes, %d rounds\n", r.name.c_str(), r.bytes, rounds);
    std::printf("  %-9s %9s %9s %9s %10s %9s %9s %10s\n", "library", "parse", "p+free",
                "write", "written", "elements", "heap", "mallocs");
    std::printf("  %-9s %9s %9s %9s %10s %9s %9s %10s\n", "", "MB/s", "MB/s", "MB/s", "bytes", "",
                "B/elem", "per elem");
    for (size_t i = 0; i < libs.size(); ++i) {
        const Figures& f = r.libs[i];
        double n = f.elements ? static_cast<double>(f.elements) : 1;
        if (!f.parsed) {
            std::printf("  %-9s parse failed\n", libs[i]->name());
            continue;
        }
        std::printf("  %-9s %9.1f %9.1f %9.1f %10zu %9zu %9.1f %10.2f %s\n", libs[i]->name(),
                    mbps(r.bytes, f.parseSec), mbps(r.bytes, f.parseFreeSec),
                    mbps(f.outputBytes, f.writeSec), f.outputBytes,
                    f.elements, f.heapBytes / n, kAllocCountKnown ? f.allocCalls / n : 0.0,
                    f.mark.c_str());
    }
    if (r.libs[0].parsed) {
        printBreakdown(breakdown, r.libs[0]);
        checkRoundTrip(static_cast<OursLib&>(*libs[0]), data, r.libs[0].elements);
    }
    std::fflush(stdout);
    return r;
}

// Against pugixml, the peer the targets are set by: the geometric mean and
// the worst file.
struct PugiSummary {
    double mean = 0;
    double worst = 0;
    std::string worstFile;
};

// One ratio table: ours over each peer, per file and as a geometric mean.
PugiSummary printRatios(const char* title, const std::vector<FileResult>& results,
                        const std::vector<std::unique_ptr<Lib>>& libs,
                        double (*ratioOf)(const Figures& ours, const Figures& peer)) {
    int width = 14;  // "geometric mean"
    for (const FileResult& r : results)
        width = std::max(width, static_cast<int>(r.name.size()));
    std::printf("\n%s\n  %-*s", title, width, "file");
    for (size_t i = 1; i < libs.size(); ++i)
        std::printf(" %9s", libs[i]->name());
    std::printf("\n");
    std::vector<GeoMean> means(libs.size());
    PugiSummary pugi;
    for (const FileResult& r : results) {
        if (r.libs.empty()) continue;
        std::printf("  %-*s", width, r.name.c_str());
        for (size_t i = 1; i < libs.size(); ++i) {
            const double ratio = ratioOf(r.libs[0], r.libs[i]);
            if (ratio > 0) {
                means[i].add(ratio);
                if (i == 1 && ratio > pugi.worst) {
                    pugi.worst = ratio;
                    pugi.worstFile = r.name;
                }
                std::printf(" %8.2f%1s", ratio, r.libs[i].mark.c_str());
            } else {
                std::printf(" %9s", "-");
            }
        }
        std::printf("\n");
    }
    std::printf("  %-*s", width, "geometric mean");
    for (size_t i = 1; i < libs.size(); ++i) {
        if (means[i].count()) {
            std::printf(" %8.2f ", means[i].value());
        } else {
            std::printf(" %9s", "-");
        }
    }
    std::printf("\n");
    pugi.mean = means[1].value();
    return pugi;
}

void printTarget(const char* what, const PugiSummary& s, double meanGoal, double worstGoal) {
    bool met = s.mean > 0 && s.mean <= meanGoal && (worstGoal <= 0 || s.worst <= worstGoal);
    std::printf("  %-6s geometric mean %.2f x pugixml (goal <= %.2f)", what, s.mean, meanGoal);
    if (worstGoal > 0) {
        std::printf(", worst %.2f on %s (goal <= %.2f)", s.worst, s.worstFile.c_str(), worstGoal);
    }
    std::printf(": %s\n", met ? "met" : "not met");
}

double parseTime(const Figures&, const Figures& peer) {
    return peer.parseRatio;
}
double parseFreeTime(const Figures&, const Figures& peer) {
    return peer.parseFreeRatio;
}
double writeTime(const Figures&, const Figures& peer) {
    return peer.writeRatio;
}
double heapPerElement(const Figures& ours, const Figures& peer) {
    auto perElement = [](const Figures& f) {
        return f.parsed && f.elements ? static_cast<double>(f.heapBytes) / f.elements : 0;
    };
    const double o = perElement(ours), p = perElement(peer);
    return o > 0 && p > 0 ? o / p : 0;
}

int usage() {
    std::fprintf(stderr, "usage: compare [--rounds N] [--min-time SECONDS] [files...]\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    Settings settings;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--rounds" && i + 1 < argc) {
            settings.rounds = std::max(1, std::atoi(argv[++i]));
        } else if (arg == "--min-time" && i + 1 < argc) {
            settings.minTime = std::max(0.0, std::atof(argv[++i]));
        } else if (arg.size() > 1 && arg[0] == '-') {
            return usage();
        } else {
            files.push_back(arg);
        }
    }
    if (files.empty()) files = defaultFiles();

    std::vector<std::unique_ptr<Lib>> libs;
    libs.push_back(std::make_unique<OursLib>());
    libs.push_back(std::make_unique<PugiLib>());
    libs.push_back(std::make_unique<TinyLib>());
    libs.push_back(std::make_unique<Libxml2Lib>());

    std::vector<FileResult> results;
    for (const std::string& path : files)
        results.push_back(measureFile(path, libs, settings));

    PugiSummary parse =
        printRatios("parse time, xmltree / peer (below 1: ours faster)", results, libs, parseTime);
    PugiSummary parseFree =
        printRatios("parse + free time, xmltree / peer", results, libs, parseFreeTime);
    PugiSummary write = printRatios("write time, xmltree / peer", results, libs, writeTime);
    PugiSummary heap =
        printRatios("heap bytes per element, xmltree / peer", results, libs, heapPerElement);
    // The milestones on the way to pugixml's cost (1.0 on all is the aim).
    std::printf("\ntargets\n");
    printTarget("parse", parse, 1.25, 2.5);
    printTarget("p+free", parseFree, 1.5, 0);
    printTarget("write", write, 0.7, 0);
    printTarget("heap", heap, 1.15, 0);
    return 0;
}
