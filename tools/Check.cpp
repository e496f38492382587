// `check`: everything the parse of the input did not keep, moved, or
// recovered from, as the library's parse notes and messages tell it.

#include <cstdio>

#include "Commands.h"
#include "Document.h"
#include "ParseReport.h"
#include "xmltree/TreeNode.h"

int runCheck(const Options& o) {
    ParseReport report(ParseReport::Mode::kList);
    LoadedDocument doc;
    int status = doc.load(o, report);
    // Without any element there is still a list worth seeing.
    if (status != kExitOk && status != kExitNotFound) return status;
    const std::string name = displayName(o.input);
    for (const std::string& line : report.lines(name, doc.text(), doc.textSize()))
        std::printf("%s\n", line.c_str());
    std::fflush(stdout);
    if (status != kExitOk) return status;
    return report.count() > 0 ? kExitNotFound : kExitOk;
}
