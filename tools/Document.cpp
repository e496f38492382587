#include "Document.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "ProgressBar.h"
#include "xmltree/TreeNode.h"

namespace {

// Keeps the first message, in case the load fails for a reason the system
// does not explain.
class FirstMessageLog : public LogBase {
  public:
    void logError(const char* message) override {
        if (m_first.empty() && message) m_first = message;
    }
    void logNameValue(const char*, const char*) override {}
    const std::string& first() const { return m_first; }

  private:
    std::string m_first;
};

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

int reportNoElement(const std::string& name) {
    return reportError(kExitNotFound, "no element in '%s'", name.c_str());
}

int parseStandardInput(const Options& o, TreeNode** root, LoadStats* stats) {
    DataBuffer data;
    if (!readStandardInput(data)) {
        return reportError(kExitUsage, "cannot read standard input: %s", std::strerror(errno));
    }
    stats->inputBytes = data.getSize();
    if (data.getSize() == 0) return reportNoElement(displayName(o.input));
    LogNull log;
    ProgressBar bar;
    ProgressMonitor* monitor = ProgressBar::wanted(data.getSize()) ? &bar : nullptr;
    TreeNode::customParseData2(data, monitor, log, root, !o.keepWhitespace);
    return kExitOk;
}

int parseFile(const Options& o, TreeNode** root, LoadStats* stats) {
    if (!statInput(o.input, stats->inputBytes)) return kExitUsage;
    FirstMessageLog log;
    ProgressBar bar;
    ProgressMonitor* monitor = ProgressBar::wanted(stats->inputBytes) ? &bar : nullptr;
    if (TreeNode::customParseFile(o.input.c_str(), &log, monitor, root, !o.keepWhitespace)) {
        return kExitOk;
    }
    std::string cause = readFailureCause(o.input);
    if (cause.empty() && stats->inputBytes == 0) return kExitOk;  // reported as no element
    if (cause.empty()) cause = log.first().empty() ? "unknown error" : log.first();
    return reportError(kExitUsage, "cannot read '%s': %s", o.input.c_str(), cause.c_str());
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

bool readStandardInput(DataBuffer& data) {
    static const size_t kChunk = 1 << 16;
    char chunk[kChunk];
    for (;;) {
        ssize_t n = read(STDIN_FILENO, chunk, kChunk);
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

bool statInput(const std::string& path, uint64_t& size) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        reportError(kExitUsage, "cannot read '%s': %s", path.c_str(), std::strerror(errno));
        return false;
    }
    if (S_ISDIR(st.st_mode)) {
        reportError(kExitUsage, "cannot read '%s': %s", path.c_str(), std::strerror(EISDIR));
        return false;
    }
    size = static_cast<uint64_t>(st.st_size);
    return true;
}

std::string readFailureCause(const std::string& path) {
    int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) return std::strerror(errno);
    char byte;
    ssize_t n = read(fd, &byte, 1);
    int err = errno;
    close(fd);
    return n < 0 ? std::string(std::strerror(err)) : std::string();
}

int loadDocument(const Options& o, TreeNode** root, LoadStats* stats) {
    *root = nullptr;
    auto start = std::chrono::steady_clock::now();
    int status = o.input == "-" ? parseStandardInput(o, root, stats) : parseFile(o, root, stats);
    stats->seconds = secondsSince(start);
    if (status != kExitOk) return status;
    if (!*root) return reportNoElement(displayName(o.input));
    return kExitOk;
}
