#include "Output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Document.h"
#include "xmltree/TreeNode.h"

namespace {

const uint64_t kMaxReserve = 1u << 30;

std::string folderOf(const std::string& path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

std::string baseOf(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool writeAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        ssize_t n = write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// The mode a newly created file gets, or the mode of the file being replaced.
mode_t targetMode(const std::string& path) {
    struct stat st;
    if (stat(path.c_str(), &st) == 0) return st.st_mode & 07777;
    mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

// Makes the rename itself durable; a failure here loses nothing already
// written, so it is not reported.
void syncFolder(const std::string& folder) {
    int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY);
    if (fd < 0) return;
    fsync(fd);
    close(fd);
}

int failTemporary(const std::string& tmp, int fd, const std::string& path, int err) {
    if (fd >= 0) close(fd);
    unlink(tmp.c_str());
    return reportError(kExitUsage, "cannot write '%s': %s", path.c_str(), std::strerror(err));
}

}  // namespace

void declareUtf8(TreeNode* root) {
    StringBuffer encoding;
    bool found = false;
    root->getDocEncoding(encoding, found);
    if (found && !encoding.equalsIgnoreCase("utf-8")) root->setDocEncoding("utf-8");
}

int writeStandardOutput(const char* data, size_t size) {
    if (size > 0 && std::fwrite(data, 1, size, stdout) != size) {
        return reportError(kExitUsage, "cannot write standard output: %s", std::strerror(errno));
    }
    if (std::fflush(stdout) != 0) {
        return reportError(kExitUsage, "cannot write standard output: %s", std::strerror(errno));
    }
    return kExitOk;
}

int writeFileAtomically(const std::string& path, const char* data, size_t size) {
    std::string folder = folderOf(path);
    std::string tmp = folder + "/." + baseOf(path) + ".XXXXXX";
    mode_t mode = targetMode(path);
    int fd = mkstemp(&tmp[0]);
    if (fd < 0) {
        return reportError(kExitUsage, "cannot write '%s': %s", path.c_str(), std::strerror(errno));
    }
    if (!writeAll(fd, data, size) || fchmod(fd, mode) != 0 || fsync(fd) != 0) {
        return failTemporary(tmp, fd, path, errno);
    }
    if (close(fd) != 0) return failTemporary(tmp, -1, path, errno);
    if (rename(tmp.c_str(), path.c_str()) != 0) return failTemporary(tmp, -1, path, errno);
    syncFolder(folder);
    return kExitOk;
}

void documentText(TreeNode* root, bool omitDeclaration, StringBuffer& out, size_t& start) {
    root->createXML(out, 0, 0, omitDeclaration);
    const char* text = out.getString();
    start = (text[0] == '\r' && text[1] == '\n') ? 2 : 0;
}

int emitDocument(const Options& o, TreeNode* root, uint64_t sizeHint) {
    declareUtf8(root);
    StringBuffer out;
    // Room for the whole text up front spares the copies of repeated growth;
    // pages never written to cost nothing.
    uint64_t room = sizeHint + sizeHint / 2 + 4096;
    out.reserve(static_cast<int>(room < kMaxReserve ? room : kMaxReserve));
    size_t start = 0;
    documentText(root, o.noDeclaration, out, start);
    const char* text = out.getString() + start;
    size_t size = static_cast<size_t>(out.getSize()) - start;
    if (o.hasOutput) return writeFileAtomically(o.output, text, size);
    return writeStandardOutput(text, size);
}
