#include "Output.h"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Document.h"
#include "xmltree/TreeNode.h"

namespace {

const uint64_t kMaxReserve = 1u << 30;

// The temporary file the signal handler removes. Set and cleared with the
// signals blocked, so the handler sees either no path or a whole one.
char g_tempPath[PATH_MAX];
volatile sig_atomic_t g_tempLive = 0;
const int kCleanupSignals[] = {SIGINT, SIGTERM, SIGHUP};

extern "C" void removeTempAndDie(int sig) {
    if (g_tempLive) unlink(g_tempPath);
    signal(sig, SIG_DFL);
    raise(sig);  // delivered once this handler returns: the usual death by sig
}

class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t set;
        sigemptyset(&set);
        for (int sig : kCleanupSignals)
            sigaddset(&set, sig);
        sigprocmask(SIG_BLOCK, &set, &m_old);
    }
    ~SignalsBlocked() { sigprocmask(SIG_SETMASK, &m_old, nullptr); }

  private:
    sigset_t m_old;
};

void installCleanup() {
    static bool installed = false;
    if (installed) return;
    installed = true;
    struct sigaction sa;
    std::memset(&sa, 0, sizeof sa);
    sa.sa_handler = removeTempAndDie;
    sigemptyset(&sa.sa_mask);
    for (int sig : kCleanupSignals) {
        struct sigaction old;
        // A signal the caller ignores (nohup, a background job) stays ignored.
        if (sigaction(sig, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;
        sigaction(sig, &sa, nullptr);
    }
}

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

// Makes the rename itself durable; a failure here loses nothing already
// written, so it is not reported.
void syncFolder(const std::string& folder) {
    int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    fsync(fd);
    close(fd);
}

// Follows symbolic links from path to the name that is not one (which need
// not exist). False with errno set on a loop or an unreadable link.
bool resolveLinks(const std::string& path, std::string& target) {
    target = path;
    for (int hops = 0; hops < 40; ++hops) {
        struct stat st;
        if (lstat(target.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return true;
        char link[PATH_MAX];
        ssize_t n = readlink(target.c_str(), link, sizeof link - 1);
        if (n < 0) return false;
        link[n] = '\0';
        if (link[0] == '/') {
            target = link;
        } else {
            target = folderOf(target) + "/" + link;
        }
    }
    errno = ELOOP;
    return false;
}

const char* kindOfFile(mode_t mode) {
    if (S_ISDIR(mode)) return "a directory";
    if (S_ISFIFO(mode)) return "a FIFO";
    if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
    if (S_ISSOCK(mode)) return "a socket";
    return "not a regular file";
}

}  // namespace

int OutputFile::prepare(const std::string& path) {
    m_path = path;
    if (!resolveLinks(path, m_target)) {
        return reportError(kExitUsage, "cannot write '%s': %s", path.c_str(), std::strerror(errno));
    }
    struct stat st;
    if (stat(m_target.c_str(), &st) == 0) {
        if (!S_ISREG(st.st_mode)) {
            return reportError(kExitUsage,
                               "cannot write '%s': it is %s; -o replaces regular files only",
                               path.c_str(), kindOfFile(st.st_mode));
        }
        m_exists = true;
    } else if (errno != ENOENT) {
        return reportError(kExitUsage, "cannot write '%s': %s", path.c_str(), std::strerror(errno));
    }
    installCleanup();
    m_temp = folderOf(m_target) + "/." + baseOf(m_target) + ".XXXXXX";
    if (m_temp.size() >= sizeof g_tempPath) {
        return reportError(kExitUsage, "cannot write '%s': %s", path.c_str(),
                           std::strerror(ENAMETOOLONG));
    }
    SignalsBlocked blocked;
    std::memcpy(g_tempPath, m_temp.c_str(), m_temp.size() + 1);
    m_fd = mkstemp(g_tempPath);
    if (m_fd < 0) {
        const int err = errno;
        m_temp.clear();
        return reportError(kExitUsage, "cannot write '%s': %s", path.c_str(), std::strerror(err));
    }
    m_temp = g_tempPath;
    g_tempLive = 1;
    return kExitOk;
}

void OutputFile::discard() {
    if (m_fd >= 0) close(m_fd);
    m_fd = -1;
    if (m_temp.empty()) return;
    SignalsBlocked blocked;
    unlink(m_temp.c_str());
    m_temp.clear();
    g_tempLive = 0;
}

int OutputFile::fail(int err) {
    discard();
    return reportError(kExitUsage, "cannot write '%s': %s", m_path.c_str(), std::strerror(err));
}

int OutputFile::commit(const char* data, size_t size) {
    if (m_fd < 0) return fail(EBADF);
    if (!writeAll(m_fd, data, size)) return fail(errno);
    struct stat st;
    if (m_exists && stat(m_target.c_str(), &st) == 0) {
        // The owner first: changing it may clear set-user-ID bits that the
        // mode then puts back. Only root may give a file away; others keep
        // at least a group they belong to, and a file of someone else's
        // becomes their own, as any editor's new copy does.
        if (fchown(m_fd, st.st_uid, st.st_gid) != 0 &&
            fchown(m_fd, static_cast<uid_t>(-1), st.st_gid) != 0) {
            errno = 0;
        }
        if (fchmod(m_fd, st.st_mode & 07777) != 0) return fail(errno);
    } else {
        mode_t mask = umask(0);
        umask(mask);
        if (fchmod(m_fd, 0666 & ~mask) != 0) return fail(errno);
    }
    if (fsync(m_fd) != 0) return fail(errno);
    const int fd = m_fd;
    m_fd = -1;
    if (close(fd) != 0) return fail(errno);
    {
        SignalsBlocked blocked;
        if (rename(m_temp.c_str(), m_target.c_str()) != 0) {
            const int err = errno;
            unlink(m_temp.c_str());
            m_temp.clear();
            g_tempLive = 0;
            return reportError(kExitUsage, "cannot write '%s': %s", m_path.c_str(),
                               std::strerror(err));
        }
        m_temp.clear();
        g_tempLive = 0;
    }
    syncFolder(folderOf(m_target));
    return kExitOk;
}

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

void crlfToLf(StringBuffer& text, int from) {
    const int size = text.getSize();
    if (from >= size) return;
    // The buffer owns these bytes; the text only shrinks.
    char* base = const_cast<char*>(text.getString());
    char* end = base + size;
    char* r = static_cast<char*>(std::memchr(base + from, '\r', static_cast<size_t>(size - from)));
    if (!r) return;
    char* w = r;
    while (r < end) {
        if (r[0] == '\r' && r + 1 < end && r[1] == '\n') ++r;  // drop the CR of a CR LF
        char* cr = static_cast<char*>(std::memchr(r + 1, '\r', static_cast<size_t>(end - r - 1)));
        if (!cr) cr = end;
        std::memmove(w, r, static_cast<size_t>(cr - r));
        w += cr - r;
        r = cr;
    }
    text.shorten(static_cast<int>(end - w));
}

int emitDocument(const Options& o, TreeNode* root, uint64_t sizeHint, OutputFile* file) {
    declareUtf8(root);
    StringBuffer out;
    // Room for the whole text up front spares the copies of repeated growth;
    // pages never written to cost nothing.
    uint64_t room = sizeHint + sizeHint / 2 + 4096;
    out.reserve(static_cast<int>(room < kMaxReserve ? room : kMaxReserve));
    root->createXML(out, 0, 0, o.noDeclaration);
    const char* text = out.getString();
    // The writer starts a document without a prolog line with an empty line.
    const int start = (text[0] == '\r' && text[1] == '\n') ? 2 : 0;
    if (!o.crlf) crlfToLf(out, start);
    if (outputFailed(out)) {
        if (!file) return reportError(kExitUsage, "cannot write standard output: Out of memory");
        return reportError(kExitUsage, "cannot write '%s': Out of memory", o.output.c_str());
    }
    text = out.getString() + start;
    const size_t size = static_cast<size_t>(out.getSize() - start);
    return file ? file->commit(text, size) : writeStandardOutput(text, size);
}
