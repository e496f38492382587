#include "Document.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "ParseReport.h"
#include "ProgressBar.h"
#include "xmltree/TreeNode.h"

namespace {

// Reads everything from fd into data. False, with errno set, on a read
// error or when the bytes do not fit in memory.
bool readAll(int fd, DataBuffer& data) {
    static const size_t kChunk = 1 << 16;
    char chunk[kChunk];
    for (;;) {
        ssize_t n = read(fd, chunk, kChunk);
        if (n == 0) return true;
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (!data.append(chunk, static_cast<unsigned int>(n))) {
            errno = ENOMEM;
            return false;
        }
    }
}

// Reads the file at path, whatever kind of file it is (a FIFO gives what
// was written into it). On failure the cause is reported.
bool readFile(const std::string& path, DataBuffer& data) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        reportError(kExitUsage, "cannot read '%s': %s", path.c_str(), std::strerror(errno));
        return false;
    }
    struct stat st;
    int err = 0;
    if (fstat(fd, &st) != 0) {
        err = errno;
    } else if (S_ISDIR(st.st_mode)) {
        err = EISDIR;
    } else if (S_ISREG(st.st_mode) && st.st_size > 0) {
        // A first guess, which spares the copies of growing; the read goes on
        // to the end whatever the size says.
        const uint64_t size = static_cast<uint64_t>(st.st_size);
        if (size < UINT_MAX && !data.reserve(static_cast<unsigned int>(size))) err = ENOMEM;
    }
    if (!err && !readAll(fd, data)) err = errno;
    close(fd);
    if (err) {
        reportError(kExitUsage, "cannot read '%s': %s", path.c_str(), std::strerror(err));
        return false;
    }
    return true;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The tree holds UTF-8 now; a declared 16-bit encoding would be a lie. The
// library's file entry point does the same.
void recordUtf8(TreeNode* root) {
    StringBuffer encoding;
    bool found = false;
    root->getDocEncoding(encoding, found);
    if (found && (encoding.equalsIgnoreCase("utf-16") || encoding.equalsIgnoreCase("ucs-2") ||
                  encoding.equalsIgnoreCase("unicode"))) {
        root->setDocEncoding("utf-8");
    }
}

}  // namespace

int reportError(int code, const char* format, ...) {
    std::fflush(stdout);
    char line[2048];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    std::fprintf(stderr, "xmltree: %s\n", line);
    return code;
}

std::string displayName(const std::string& input) {
    return input == "-" ? std::string("standard input") : input;
}

LoadedDocument::~LoadedDocument() {
    if (m_root) m_root->deleteTree();
}

void LoadedDocument::releaseText() {
    DataBuffer none;
    m_text.takeData(none);
}

int LoadedDocument::load(const Options& o, ParseReport& report) {
    const std::string name = displayName(o.input);
    auto start = std::chrono::steady_clock::now();
    if (o.input == "-") {
        if (!readAll(STDIN_FILENO, m_text)) {
            return reportError(kExitUsage, "cannot read standard input: %s", std::strerror(errno));
        }
    } else if (!readFile(o.input, m_text)) {
        return kExitUsage;
    }
    m_stats.inputBytes = m_text.getSize();
    if (m_text.getSize() == 0) {
        return reportError(kExitNotFound, "no element in '%s'", name.c_str());
    }
    ProgressBar bar;
    ProgressMonitor* monitor = ProgressBar::wanted(m_text.getSize()) ? &bar : nullptr;
    // Decodes m_text in place; the parser reads a copy of what it leaves.
    const bool parsed =
        TreeNode::customParseData2(m_text, monitor, report, &m_root, !o.keepWhitespace);
    m_stats.seconds = secondsSince(start);
    if (!parsed || report.outOfMemory()) {
        if (m_root) m_root->deleteTree();
        m_root = nullptr;
        std::string cause = report.lastMessage();
        if (report.outOfMemory() && cause.compare(0, 13, "Out of memory") != 0) {
            cause = "Out of memory";
        }
        return reportError(kExitUsage, "cannot parse '%s': %s", name.c_str(),
                           cause.empty() ? "the parser gave up" : cause.c_str());
    }
    if (!m_root) return reportError(kExitNotFound, "no element in '%s'", name.c_str());
    recordUtf8(m_root);
    return kExitOk;
}
