// What the command-line cases in this folder do not reach: the option forms
// and the usage mistakes no case runs.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Options.h"

namespace {

// Runs parseArguments on the words given, with "xmltree" as argv[0].
ArgAction parse(std::vector<std::string> words, Options& o) {
    words.insert(words.begin(), "xmltree");
    std::vector<char*> argv;
    for (std::string& w : words)
        argv.push_back(&w[0]);
    argv.push_back(nullptr);
    return parseArguments(static_cast<int>(words.size()), argv.data(), o);
}

TEST(Arguments, OptionFormsDashesAndEmptyValues) {
    Options o;
    ASSERT_EQ(ArgAction::kRun, parse({"find", "--tag=item", "doc.xml", "--content", "a*", "--attr",
                                      "href=http://x?a=b", "--first"},
                                     o));
    // Split at the first '=' only.
    EXPECT_EQ(o.command + "|" + o.input + "|" + o.tag + "|" + o.content + "|" + o.attrName + "|" +
                  o.attrPattern,
              "find|doc.xml|item|a*|href|http://x?a=b");
    EXPECT_TRUE(o.first && o.hasAttr);
    Options dash, empty;
    ASSERT_EQ(ArgAction::kRun, parse({"format", "--", "--odd-name.xml"}, dash));
    EXPECT_EQ("--odd-name.xml", dash.input);
    ASSERT_EQ(ArgAction::kRun, parse({"text", "--tag=", "--skip", "", "-"}, empty));
    EXPECT_TRUE(empty.hasTag && empty.hasSkip && empty.tag.empty());
    EXPECT_EQ("-", empty.input);
}

TEST(Arguments, MistakesAreUsageErrorsAndHelpComesFirst) {
    const std::vector<std::vector<std::string>> bad = {
        {},                                               // no command
        {"format"},                                       // no file
        {"check", "--keep-whitespace", "d"},              // option of other commands
        {"find", "d.xml", "--tag", "t", "--attr", "=x"},  // no attribute name
        {"find", "d.xml", "--tag", "t", "--first=yes"},   // flag with a value
        {"sort", "d.xml"},                                // --by missing
        {"format", "d.xml", "-o", ""},                    // empty output path
        {"format", "d.xml", "-o", "-"},                   // standard output is the default
    };
    for (const std::vector<std::string>& words : bad) {
        Options o;
        EXPECT_EQ(ArgAction::kUsageError, parse(words, o)) << words.size();
    }
    Options a, b, c;
    EXPECT_EQ(ArgAction::kShowHelp, parse({"help", "find"}, a));
    EXPECT_EQ(ArgAction::kShowHelp, parse({"find", "-h"}, b));  // no --tag needed
    EXPECT_EQ(ArgAction::kShowVersion, parse({"--version"}, c));
    EXPECT_NE(std::string(helpText("find")), std::string(helpText("")));
}

}  // namespace
