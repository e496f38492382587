#ifndef XMLTREE_TOOLS_OUTPUT_H
#define XMLTREE_TOOLS_OUTPUT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "Options.h"

class StringBuffer;
class TreeNode;

// Writes the bytes to standard output in one buffered write. Returns kExitOk,
// or reports the failure and returns kExitUsage.
int writeStandardOutput(const char* data, size_t size);

// Replaces the file at path by the bytes: they go to a new temporary file in
// the same folder, which is flushed to disk and then renamed over path. The
// old file stays untouched on any failure, and the temporary file is removed.
// Returns kExitOk, or reports the failure and returns kExitUsage.
int writeFileAtomically(const std::string& path, const char* data, size_t size);

// The whole document of root as the writer makes it, less the empty line the
// writer puts first when no prolog line precedes the root element.
void documentText(TreeNode* root, bool omitDeclaration, StringBuffer& out, size_t& start);

// The output is UTF-8 whatever the input was, so a declaration naming
// another encoding is made to name utf-8; one without encoding stays so.
void declareUtf8(TreeNode* root);

// Writes the document of root to -o OUT or to standard output. sizeHint is
// the size of the input, from which the output buffer is sized.
int emitDocument(const Options& opts, TreeNode* root, uint64_t sizeHint);

#endif
