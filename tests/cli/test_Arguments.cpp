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

TEST(Arguments, OptionsMayStandBeforeOrAfterTheFileInBothForms) {
    Options o;
    ASSERT_EQ(ArgAction::kRun, parse({"find", "--tag=item", "doc.xml", "--content", "a*", "--attr",
                                      "href=http://x?a=b", "--first"},
                                     o));
    EXPECT_EQ("find", o.command);
    EXPECT_EQ("doc.xml", o.input);
    EXPECT_EQ("item", o.tag);
    EXPECT_EQ("a*", o.content);
    EXPECT_TRUE(o.hasAttr);
    EXPECT_EQ("href", o.attrName);
    EXPECT_EQ("http://x?a=b", o.attrPattern);  // split at the first '=' only
    EXPECT_TRUE(o.first);
}

TEST(Arguments, DashIsStandardInputAndDoubleDashEndsTheOptions) {
    Options stdinInput;
    ASSERT_EQ(ArgAction::kRun, parse({"text", "-"}, stdinInput));
    EXPECT_EQ("-", stdinInput.input);

    Options dashFile;
    ASSERT_EQ(ArgAction::kRun, parse({"format", "--", "--odd-name.xml"}, dashFile));
    EXPECT_EQ("--odd-name.xml", dashFile.input);
}

TEST(Arguments, EmptyValuesAreGivenValues) {
    Options o;
    ASSERT_EQ(ArgAction::kRun, parse({"text", "--tag=", "--skip", "", "d.xml"}, o));
    EXPECT_TRUE(o.hasTag);
    EXPECT_EQ("", o.tag);
    EXPECT_TRUE(o.hasSkip);
}

TEST(Arguments, SortFlagsAndOutput) {
    Options o;
    ASSERT_EQ(ArgAction::kRun, parse({"sort", "d.xml", "--by", "attr-int:id", "--desc",
                                      "--ignore-case", "--at", "list", "-o", "out.xml"},
                                     o));
    EXPECT_EQ("attr-int:id", o.by);
    EXPECT_TRUE(o.descending);
    EXPECT_TRUE(o.ignoreCase);
    EXPECT_TRUE(o.hasAt);
    EXPECT_EQ("list", o.at);
    EXPECT_EQ("out.xml", o.output);
}

TEST(Arguments, MistakesAreUsageErrors) {
    const std::vector<std::vector<std::string>> bad = {
        {},                                               // no command
        {"frobnicate", "d.xml"},                          // unknown command
        {"format"},                                       // no file
        {"format", "a.xml", "b.xml"},                     // two files
        {"format", "--bogus", "d.xml"},                   // unknown option
        {"check", "--keep-whitespace", "d"},              // option of other commands
        {"text", "--first", "d.xml"},                     // find's option
        {"find", "d.xml"},                                // --tag missing
        {"find", "d.xml", "--tag"},                       // value missing
        {"find", "d.xml", "--tag", "t", "--attr", "=x"},  // no attribute name
        {"find", "d.xml", "--tag", "t", "--first=yes"},   // flag with a value
        {"sort", "d.xml"},                                // --by missing
        {"format", "d.xml", "-o", ""},                    // empty output path
        {"format", "d.xml", "-o", "-"},                   // standard output is the default
    };
    for (const std::vector<std::string>& words : bad) {
        Options o;
        std::string line;
        for (const std::string& w : words)
            line += w + " ";
        EXPECT_EQ(ArgAction::kUsageError, parse(words, o)) << line;
    }
}

TEST(Arguments, HelpAndVersionStopBeforeAnyCheck) {
    Options a, b, c, d;
    EXPECT_EQ(ArgAction::kShowHelp, parse({"--help"}, a));
    EXPECT_EQ(ArgAction::kShowHelp, parse({"help", "find"}, b));
    EXPECT_EQ(ArgAction::kShowHelp, parse({"find", "-h"}, c));  // no --tag needed
    EXPECT_EQ(ArgAction::kShowVersion, parse({"--version"}, d));
    EXPECT_NE(std::string(helpText("find")), std::string(helpText("")));
}

}  // namespace
