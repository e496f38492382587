// The parse entry points: a document from a file, a string, a string
// buffer or a byte buffer, brought to UTF-8 where it may be in another
// encoding, handed to customParse.

#include "xmltree/TreeNode.h"

bool TreeNode::customParseFile(const char* path, LogBase* log, ProgressMonitor* monitor,
                               TreeNode** outRoot, bool trimWhitespace) {
    LogNull nullLog;
    if (!log) log = &nullLog;
    DataBuffer data;
    if (!loadToUtf8(path, data, *log)) return false;
    ParseEngine engine(data);
    bool ok = customParse(engine, log, monitor, outRoot, trimWhitespace);
    if (ok && outRoot && *outRoot) {
        // The tree holds UTF-8 now; a declared 16-bit encoding would be a lie.
        StringBuffer enc;
        bool found = false;
        (*outRoot)->getDocEncoding(enc, found);
        if (found && (enc.equalsIgnoreCase("utf-16") || enc.equalsIgnoreCase("ucs-2") ||
                      enc.equalsIgnoreCase("unicode"))) {
            (*outRoot)->setDocEncoding("utf-8");
        }
    }
    return ok;
}

bool TreeNode::customParseStringN(const char* text, int n, ProgressMonitor* monitor,
                                  TreeNode** outRoot, bool trimWhitespace) {
    ParseEngine engine;
    if (text && n > 0) engine.appendN(text, n);
    return customParse(engine, nullptr, monitor, outRoot, trimWhitespace);
}

bool TreeNode::customParseString(const StringBuffer& text, LogBase* log, ProgressMonitor* monitor,
                                 TreeNode** outRoot, bool trimWhitespace) {
    ParseEngine engine;
    engine.append(text.getString());
    return customParse(engine, log, monitor, outRoot, trimWhitespace);
}

bool TreeNode::customParseUtf8Data(DataBuffer& data, ProgressMonitor* monitor, LogBase& log,
                                   TreeNode** outRoot, bool trimWhitespace) {
    ParseEngine engine(data);
    engine.cursor = 0;
    return customParse(engine, &log, monitor, outRoot, trimWhitespace);
}

bool TreeNode::customParseData2(DataBuffer& data, ProgressMonitor* monitor, LogBase& log,
                                TreeNode** outRoot, bool trimWhitespace) {
    if (!convertXmlToUtf8(data, log)) {
        log.logError("Failed to convert XML data to utf-8 internal representation");
        return false;
    }
    return customParseUtf8Data(data, monitor, log, outRoot, trimWhitespace);
}
