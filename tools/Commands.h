#ifndef XMLTREE_TOOLS_COMMANDS_H
#define XMLTREE_TOOLS_COMMANDS_H

#include "Options.h"

// Each runs one command and returns the process exit status.
int runFormat(const Options& opts);
int runCheck(const Options& opts);
int runText(const Options& opts);
int runFind(const Options& opts);
int runSort(const Options& opts);
int runStats(const Options& opts);

#endif
