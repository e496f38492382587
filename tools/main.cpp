// xmltree: format, check, search, sort and measure XML documents from the
// command line.

#include <cstring>

#include "Commands.h"
#include "Options.h"

namespace {

struct CommandEntry {
    const char* name;
    int (*run)(const Options&);
};

const CommandEntry kRunners[] = {
    {"format", runFormat}, {"check", runCheck}, {"text", runText},
    {"find", runFind},     {"sort", runSort},   {"stats", runStats},
};

}  // namespace

int main(int argc, char** argv) {
    Options opts;
    switch (parseArguments(argc, argv, opts)) {
        case ArgAction::kShowHelp:
        case ArgAction::kShowVersion:
            return kExitOk;
        case ArgAction::kUsageError:
            return kExitUsage;
        case ArgAction::kRun:
            break;
    }
    for (const CommandEntry& c : kRunners) {
        if (std::strcmp(c.name, opts.command.c_str()) == 0) return c.run(opts);
    }
    return kExitUsage;
}
