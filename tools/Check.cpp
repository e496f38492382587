// `check`: the parse is run here step by step rather than through the file
// entry point, so that the logger can read the engine's cursor.

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "CheckLogger.h"
#include "Commands.h"
#include "Document.h"
#include "ProgressBar.h"
#include "xmltree/TreeNode.h"

namespace {

// Loads the input as UTF-8. Messages of the decoding stay held in log.
int loadUtf8(const Options& o, DataBuffer& data, CheckLogger& log, uint64_t& inputBytes) {
    if (o.input == "-") {
        if (!readStandardInput(data)) {
            return reportError(kExitUsage, "cannot read standard input: %s", std::strerror(errno));
        }
        inputBytes = data.getSize();
        if (data.getSize() > 0) TreeNode::convertXmlToUtf8(data, log);
        return kExitOk;
    }
    if (!statInput(o.input, inputBytes)) return kExitUsage;
    if (TreeNode::loadToUtf8(o.input.c_str(), data, log)) return kExitOk;
    std::string cause = readFailureCause(o.input);
    if (cause.empty() && inputBytes == 0) return kExitOk;  // reported as no element
    log.dropHeld();
    if (cause.empty()) cause = "unknown error";
    return reportError(kExitUsage, "cannot read '%s': %s", o.input.c_str(), cause.c_str());
}

}  // namespace

int runCheck(const Options& o) {
    std::string name = displayName(o.input);
    CheckLogger log(name, stdout);
    DataBuffer data;
    uint64_t inputBytes = 0;
    int status = loadUtf8(o, data, log, inputBytes);
    if (status != kExitOk) return status;
    log.releaseHeld();

    TreeNode* root = nullptr;
    {
        ParseEngine engine(data);
        ProgressBar bar;
        ProgressMonitor* monitor = ProgressBar::wanted(inputBytes) ? &bar : nullptr;
        if (monitor) {
            log.setBeforePrint([&bar] {
                std::fflush(stdout);
                bar.erase();
            });
        }
        log.attach(&engine);
        TreeNode::customParse(engine, &log, monitor, &root, !o.keepWhitespace);
        log.finish();
        log.attach(nullptr);
        log.setBeforePrint(nullptr);
    }
    std::fflush(stdout);
    if (!root) return reportError(kExitNotFound, "no element in '%s'", name.c_str());
    root->deleteTree();
    return log.count() > 0 ? kExitNotFound : kExitOk;
}
