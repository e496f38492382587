#ifndef XMLTREE_TOOLS_OUTPUT_H
#define XMLTREE_TOOLS_OUTPUT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#include "Options.h"

class StringBuffer;
class TreeNode;

// Whether building the output text ran out of memory. The output buffer
// keeps a sticky mark for that (hasFailed); a buffer without the mark cannot
// tell, and is taken as whole.
template <typename Buffer>
auto outputFailed(const Buffer& b, int) -> decltype(b.hasFailed()) {
    return b.hasFailed();
}
template <typename Buffer>
bool outputFailed(const Buffer&, long) {
    return false;
}
template <typename Buffer>
bool outputFailed(const Buffer& b) {
    return outputFailed(b, 0);
}

// The file that -o names, written as a whole or not at all. prepare()
// settles what the path means and makes a temporary file next to the file it
// will replace; commit() fills the temporary file, flushes it to disk and
// renames it over the target. The temporary file is removed when the
// object goes without a commit, when commit fails, and when the process is
// stopped by SIGINT, SIGTERM or SIGHUP in between.
class OutputFile {
  public:
    OutputFile() {}
    ~OutputFile() { discard(); }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // A new name or a regular file is the target; a symbolic link leads to
    // its target, which is written and the link stays. A directory, FIFO,
    // device or socket is refused without being opened. kExitOk, or the
    // cause is reported and the result is kExitUsage.
    int prepare(const std::string& path);
    // Whether the target holds a file now (that a write would replace).
    bool targetExists() const { return m_exists; }
    // Writes the bytes and puts them in place: the target keeps its mode and,
    // where the user may set them, its owner and group. kExitOk, or the
    // failure is reported, nothing is replaced, and the result is kExitUsage.
    int commit(const char* data, size_t size);
    // Removes the temporary file; the target stays as it is.
    void discard();

  private:
    int fail(int err);

    std::string m_path;    // as given, for messages
    std::string m_target;  // the file to replace, links followed
    std::string m_temp;
    int m_fd = -1;
    bool m_exists = false;
};

// Writes the bytes to standard output. Returns kExitOk, or reports the
// failure and returns kExitUsage.
int writeStandardOutput(const char* data, size_t size);

// Turns every CR LF from `from` on into LF, in place.
void crlfToLf(StringBuffer& text, int from);

// The output is UTF-8 whatever the input was, so a declaration naming
// another encoding is made to name utf-8; one without encoding stays so.
void declareUtf8(TreeNode* root);

// Writes the document of root as `format` does, to `file` or to standard
// output when file is null: the writer's text, without the empty line it
// puts before a root that has no prolog line, with LF line ends unless
// --crlf. sizeHint is the size of the input, from which the output buffer
// is sized.
int emitDocument(const Options& opts, TreeNode* root, uint64_t sizeHint, OutputFile* file);

#endif
