#ifndef XMLTREE_TESTS_TESTSUPPORT_H
#define XMLTREE_TESTS_TESTSUPPORT_H

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "xmltree/TreeNode.h"

// Every message logged, in order, as "E:text" or "NV:name=value".
struct RecordingLog : LogBase {
    std::vector<std::string> lines;
    void logError(const char* m) override { lines.push_back(std::string("E:") + m); }
    void logNameValue(const char* n, const char* v) override {
        lines.push_back(std::string("NV:") + n + "=" + v);
    }
};

// An empty buffer has no data pointer at all.
inline std::string bytesOf(const DataBuffer& d) {
    return d.getSize() ? std::string(reinterpret_cast<const char*>(d.getData2()), d.getSize())
                       : std::string();
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.good()) << path;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The regular files of `dir` (ending in '/') but dot files and README.md,
// sorted so that a failure names the same input every run.
inline std::vector<std::string> filesIn(const std::string& dir) {
    std::vector<std::string> out;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d)) {
            const std::string name = e->d_name, path = dir + name;
            struct stat st;
            if (name[0] == '.' || name == "README.md" || stat(path.c_str(), &st) != 0 ||
                !S_ISREG(st.st_mode))
                continue;
            out.push_back(path);
        }
        closedir(d);
    }
    std::sort(out.begin(), out.end());
    return out;
}

// The tree of `text`, parsed with trimming and no log; null without element.
inline TreeNode* parseText(const std::string& text) {
    TreeNode* root = nullptr;
    EXPECT_TRUE(TreeNode::customParseStringN(text.data(), static_cast<int>(text.size()), nullptr,
                                             &root, true));
    return root;
}

#endif
