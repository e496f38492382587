// xmltree: format, check, search, sort and measure XML documents from the
// command line.

#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>

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
    // Past the file size limit a write then fails with EFBIG, which is
    // reported, instead of killing the tool half-way through a file.
    std::signal(SIGXFSZ, SIG_IGN);
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
        if (std::strcmp(c.name, opts.command.c_str()) != 0) continue;
        try {
            return c.run(opts);
        } catch (const std::bad_alloc&) {
            // Whatever the command held, a temporary -o file included, has
            // been released on the way here.
            std::fflush(stdout);
            std::fprintf(stderr, "xmltree: '%s': Out of memory\n", opts.input.c_str());
            return kExitUsage;
        }
    }
    return kExitUsage;
}
