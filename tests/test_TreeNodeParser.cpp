// The forgiving parser: markup, recovery paths, prolog branches, messages,
// progress, entry points and style-sheet text input.

#include "tests/TestSupport.h"

namespace {

using Lines = std::vector<std::string>;

struct RecordingMonitor : ProgressMonitor {
    Lines calls;
    void progressReset_32(unsigned int total) override {
        calls.push_back("reset " + std::to_string(total));
    }
    void setAmountConsumed2_32(unsigned int amount, bool& abort) override {
        calls.push_back("amount " + std::to_string(amount) + (abort ? " abort" : ""));
        abort = true;  // the parser must go on whatever the monitor answers
    }
    void consumeRemaining(int code) override { calls.push_back("rest " + std::to_string(code)); }
};

std::string text(const StringBuffer* sb) {
    return sb ? sb->getString() : "";
}

// Records the messages and, when it asks for them, the parse notes, each as
// "kind@offset'span'(element)"; element starts only with `starts`.
// Errors also carry the engine's cursor at the time they are logged.
struct NotingLog : RecordingLog {
    const ParseEngine* engine = nullptr;
    void logError(const char* m) override {
        RecordingLog::logError(m);
        if (engine) lines.back() += "@" + std::to_string(engine->cursor);
    }
    bool wanted = false;
    bool starts = false;
    std::string text;
    Lines notes;
    bool wantsParseNotes() const override { return wanted; }
    void logParseNote(xmltree::ParseNote what, int offset, int length,
                      const TreeNode* element) override {
        static const char kNames[] =
            " start comment unclosed-comment declaration pi charref entref joined after-cdata"
            " outside replaced dropped nul encoding utf8 unended mismatch stray open dtd cutoff"
            " bad-element bad-attr dup no-value unquoted ";
        if (what == xmltree::ParseNote::kElementStart && !starts) return;
        ASSERT_GE(offset, 0);
        ASSERT_LE(static_cast<size_t>(offset) + static_cast<size_t>(length), text.size());
        std::istringstream names(kNames);
        std::string n;
        for (int i = 0; i <= static_cast<int>(what); ++i)
            names >> n;
        n += "@" + std::to_string(offset) + "'" + text.substr(offset, length) + "'";
        if (element) n += "(" + std::string(element->getTag()) + ")";
        notes.push_back(n);
    }
};

// Owns the parsed tree for the length of a test.
struct Parsed {
    TreeNode* root = nullptr;
    bool ok = false;
    NotingLog log;
    Parsed(const std::string& in, bool trim, ProgressMonitor* mon = nullptr, bool notes = false,
           bool starts = false) {
        ParseEngine engine;
        engine.appendN(in.data(), static_cast<int>(in.size()));
        log.wanted = notes;
        log.starts = starts;
        log.text = in;
        log.engine = &engine;
        ok = TreeNode::customParse(engine, &log, mon, &root, trim);
        log.engine = nullptr;
    }
    ~Parsed() {
        if (root) root->deleteTree();
    }
    std::string tree() { return root ? dump(root) : "<none>"; }
    TreeInfo* info() { return root->getTreeInfo(); }
};

struct Case {
    const char* in;
    bool trim;
    const char* tree;
};

// Each row is one recovery rule or edge; the picture shows what was kept.
const Case kCases[] = {
    {"<a>x<b/>y</a>", true, "a{x y}[b]"},
    {"<a>  </a>", false, "a{  }"},
    {"<a>  </a>", true, "a"},
    {"<a>\n  <b/>\n</a>", false, "a[b]"},
    {"<a> x <b/> y </a>", false, "a{x   y}[b]"},  // ws run, joining space, then trim2
    {"<a> x <b/> y ", false, "a{ x   y }[b]"},    // finished silently: no trimming
    {"<a>\n\t x  y \r\n</a>", true, "a{x  y}"},
    {"<a>&amp;lt; &lt;&gt;&quot;&apos; &#65; &bogus; &amp</a>", true,
     "a{&lt; <>\"' &#65; &bogus; &amp}"},
    {"<a>&amp;lt;<b/>&amp;gt;</a>", true, "a{&lt; &gt;}[b]"},  // earlier text not decoded again
    {"junk<a>x</a>more", true, "a{x}"},
    {"<a>x", true, "a{x}"},
    {"<a>x</b>", true, "a{x}"},
    {"<a><b></a>", true, "a[b]"},
    {"<a/><b/>", true, "b"},
    {"<a>1</a><b><c>2", true, "a{1}"},
    {"< a>x</a>", true, "a{x}"},
    {"<r>< /a></r>", true, "r[(a=;)]"},
    {"<a><b", true, "a"},
    {"<ab", true, "<none>"},
    {"<<a>x</a>", true, "a{x}"},
    {"<a x=b c=\"d\">", true, "a(x=b c=;d=;)"},
    {"<a s='say \"hi\"' d=\"it's\" e='&amp;lt;'/>", true, "a(s=say \"hi\";d=it's;e=&lt;;)"},
    {"<a v=\"&lt;&gt;&quot;&apos;&amp;&#38;\"/>", true, "a(v=<>\"'&&#38;;)"},
    {"<r><a/ x='1'>t</r>", true, "r{t}[a(x=1;)]"},
    {"<a \"n\"='1' 'n'='2' flag/>", true, "a(n=1;n=2;flag=;)"},
    {"<a 1st='x' -b='y' .c='z' 9='w' _e='v' /f='u'/>", true,
     "a(A1st=x;A-b=y;A.c=z;A9=w;_e=v;f=u;)"},
    {"<a>x<![CDATA[<y>]]></a>", true, "a{x<y>}!"},
    {"<a><![CDATA[1]]><![CDATA[2]]></a>", true, "a{12}!"},
    {"<a><![CDATA[a]b]]c]]></a>", true, "a{a]b]]c}!"},
    {"<a><![CDATA[&amp;]]>lost<b/>kept</a>", true, "a{&amp; kept}![b]"},
    {"<a>  <![CDATA[ z ]]></a>", false, "a{ z }!"},
    {"<a><![CDATA[abc]", true, "a{abc]}!"},
    {"<a><![CDATA[]]]><![CDATA[]]></a>", true, "a{]}!"},
    {"<![CDATA[x]]><a/>", true, "a"},
    {"<a>x<!--note-->y</a>", true, "a{x y}"},
    {"<a>x<!-->y</a>", true, "a{x y}"},
    {"<a>x<!-- -> > -- >--->y<?p >?x?>z</a>", true, "a{x y z}"},
    {"<!ELEMENT r ANY><r>a<!foo bar>b</r>", true, "r{a b}"},
    {"<?xml version='1.0' standalone=yes?>\n<r/>", true, "<none>"},
};

TEST(ParserMarkup, RecoveryRulesAndEdges) {
    for (const Case& c : kCases) {
        Parsed p(c.in, c.trim);
        EXPECT_TRUE(p.ok) << c.in;
        EXPECT_EQ(p.tree(), c.tree) << c.in << (c.trim ? " (trim)" : " (keep)");
        // A logger that takes notes gets the same tree and messages.
        Parsed noted(c.in, c.trim, nullptr, true);
        EXPECT_EQ(noted.tree(), c.tree) << c.in;
        EXPECT_EQ(noted.log.lines, p.log.lines) << c.in;
    }
}

// Names and values are scanned a few bytes a step, then values and closing
// tags 16 a step: every length up to past one wide step, each followed by
// the bytes that can end it. Text runs are searched for references in
// overlapping loads up to 32 bytes.
TEST(ParserScans, EveryShortLengthWithEachEnd) {
    const std::string letters = "abcdefghijklmnopqrstuvwxyz";
    for (size_t n = 1; n <= 24; ++n) {
        const std::string name = letters.substr(0, n);
        const std::string value = letters.substr(0, n - 1);
        const std::string pair = name + "=" + value + ";";
        const struct {
            std::string in, tree;
        } rows[] = {
            {"<" + name + "/>", name},
            {"<" + name + ">\n</" + name + ">", name},
            {"<" + name + "\t/>", name},
            {"<r><" + name + ">x</" + name + "\n>y</r>", "r{y}[" + name + "{x}]"},
            {"<r " + name + "='" + value + "'/>", "r(" + pair + ")"},
            {"<r " + name + " = \"" + value + "\"\n" + name + "=\"&amp;" + value + "\">",
             "r(" + pair + name + "=&" + value + ";)"},
            // a reference first, last or between, in text runs of 5 to 51 bytes
            {"<a>&amp;" + value + "</a>", "a{&" + value + "}"},
            {"<a>" + value + "&lt;</a>", "a{" + value + "<}"},
            {"<a>" + name + "&gt;" + value + "</a>", "a{" + name + ">" + value + "}"},
        };
        for (const auto& row : rows) {
            Parsed p(row.in, true);
            EXPECT_EQ(p.tree(), row.tree) << row.in;
        }
    }
}

// Each kind of note at the place it concerns. The spans are what a report
// shows; the messages of the recoveries follow their notes.
TEST(ParserNotes, EachKindAtItsPlace) {
    const struct {
        std::string in;
        Lines notes;
    } cases[] = {
        {"<a>x<!--c-->y</a>", {"comment@4'<!--c-->'(a)", "joined@12'y'(a)"}},
        {"<a>x<!-- open", {"unclosed-comment@4'<!-- open'(a)", "open@13''(a)"}},
        {"<!FOO x><a/>", {"declaration@0'<!FOO x>'"}},
        {"<a><?p x?></a><?q?>", {"pi@3'<?p x?>'(a)", "pi@14'<?q?>'"}},
        {"<a v='&#1;&x;'>&#x41;&nbsp;&amp;&lt;AT&T &#;</a>",
         {"charref@6'&#1;'(a)", "entref@10'&x;'(a)", "charref@15'&#x41;'(a)",
          "entref@21'&nbsp;'(a)"}},
        {"<a><b/>t</a>", {"joined@7't'(a)"}},
        {"<a><![CDATA[c]]> d <b/></a>", {"after-cdata@17'd'(a)"}},
        {" x <a/> y", {"outside@1'x'", "outside@8'y'"}},
        {"<a/>  ", {}},
        {"<a/><b/>", {"replaced@0'<a'(a)"}},
        {"<a/><b>", {"dropped@4'<b'(b)"}},
        {std::string("<a>x\0y</a>", 10),
         {"nul@4'" + std::string("\0y</a>", 6) + "'", "open@4''(a)"}},
        {"<a>\xE9\xE8t\xC3</a>", {"utf8@3'\xE9\xE8'", "utf8@6'\xC3'"}},
        {"<a>\x80</a>", {"utf8@3'\x80'"}},
        {"<r><a></a<b/></x>", {"unended@9''(a)", "mismatch@15'x'(r)"}},
        {"</x><a/>", {"stray@0'</'"}},
        {"<a><b>", {"open@6''(b)", "open@6''(a)"}},
        {"<!DOCTYPE r [", {"dtd@0'<!DOCTYPE r ['"}},
        {"<a><b", {"cutoff@3'<b'", "open@5''(a)"}},
        {"<1a b\"c='1' d e='' e='2' =\"v\" f=g'/>",
         {"bad-attr@4'b\"c'(1a)", "no-value@12'd'(1a)", "dup@19'e'(1a)", "bad-attr@25''(1a)",
          "unquoted@32'g'(1a)", "bad-element@1'1a'(1a)"}},
    };
    for (const auto& c : cases) {
        Parsed p(c.in, true, nullptr, true);
        EXPECT_TRUE(p.ok);
        EXPECT_EQ(p.log.notes, c.notes) << c.in;
    }
    // Every element made, at its '<', the one a later root destroys too.
    Parsed starts("<r>< a/> <b>t</b></r><s/>", true, nullptr, true, true);
    EXPECT_EQ(starts.log.notes, (Lines{"start@0'<r'(r)", "start@3'< a'(a)", "start@9'<b'(b)",
                                       "replaced@0'<r'(r)", "start@21'<s'(s)"}));
    // The input decoding notes a declared encoding it cannot convert: its
    // name, or the whole declaration when the name is not found as written.
    for (const auto& [in, note] :
         {std::pair<std::string, std::string>{"<?xml version='1.0' encoding = 'X-No-Such'?><a/>",
                                              "encoding@32'X-No-Such'"},
          {"<?xml encoding='X No'?><a/>", "encoding@0'<?xml encoding='X No'?>'"}}) {
        NotingLog log;
        log.wanted = true;
        log.text = in;
        DataBuffer data;
        data.append(in.data(), static_cast<unsigned int>(in.size()));
        EXPECT_TRUE(TreeNode::convertXmlToUtf8(data, log));
        EXPECT_EQ(log.notes, Lines{note});
        EXPECT_EQ(bytesOf(data), in);
    }
}

// Each message with the cursor at the time: where the parse stands.
TEST(ParserMessages, ExactTextsOrderAndPlace) {
    const struct {
        const char* in;
        Lines log;
        const char* tree;
    } cases[] = {
        {"<a></a", {"E:Error in closing tag@6", "NV:error_tag=a"}, "a"},
        {"<r><a></a<b/></r>", {"E:Error in closing tag@9", "NV:error_tag=a"}, "r[a,b]"},
        {"</x><a/></y", {"E:Error in closing tag@11"}, "a"},  // nothing open: no error_tag
        {"<r>< ></", {"E:Error in closing tag@8", "NV:error_tag="}, "r[]"},
        {"<a>x<!-- x", {"E:Unclosed comment@10"}, "a{x}"},
        {"<!doctype r [<!ENTITY e \"v\">", {"E:Failed to parse DTD@28"}, "<none>"},
        {"<a>x</b><c/>", {}, "c"},
    };
    for (const auto& c : cases) {
        Parsed p(c.in, true);
        EXPECT_TRUE(p.ok);
        EXPECT_EQ(p.log.lines, c.log) << c.in;
        EXPECT_EQ(p.tree(), c.tree) << c.in;
    }
}

// The declaration ("-": none) with its tag, and the processing and DOCTYPE
// texts: the latest declaration goes to the one root that takes it, texts
// accumulate across roots, and texts after the last root belong to none.
TEST(ParserProlog, DeclarationsDoctypeAndInstructions) {
    const struct {
        const char *in, *tree, *decl, *processing, *docType;
    } cases[] = {
        {"<?xml version=\"1.0\" encoding=\"utf-8\"?><!DOCTYPE r [<!ENTITY e \"v\">]><?app go?><r/>",
         "r", "xml:version=1.0;encoding=utf-8;", "<?app go?>\n",
         "<!DOCTYPE r [<!ENTITY e \"v\">]>\n"},
        {"<?XML version = \"1.0\" encoding='x&amp;y' standalone=no ?><r/>", "r",
         "XML:version=1.0;encoding=x&y;standalone=no;", "", ""},
        {"<?xml version='1.0'?><?xml version='2.0'?><a/><b/>", "b", "-", "", ""},  // a took it
        {"<?xml version='1.0'?><?xml version='2.0'?><a/>", "a", "xml:version=2.0;", "", ""},
        {"<?xml?><r/>", "r", "-", "<?xml?>\n", ""},  // no blank after the name: another PI
        {"<?app go?><a><?in side ?></a><!DOCTYPE d><b/>", "b", "-", "<?app go?>\n<?in side ?>\n",
         "<!DOCTYPE d>\n"},
        {"<!DOCTYPE d><a/><?late ?><!DOCTYPE e>", "a", "-", "", "<!DOCTYPE d>\n"},
    };
    for (const auto& c : cases) {
        Parsed p(c.in, true);
        TreeNode* decl = p.info()->xmlDecl;
        EXPECT_EQ(p.tree(), c.tree) << c.in;
        EXPECT_EQ(decl ? std::string(decl->getTag()) + ":" + attrs(decl) : "-", c.decl) << c.in;
        EXPECT_EQ(text(p.info()->processing), c.processing) << c.in;
        EXPECT_EQ(text(p.info()->docType), c.docType) << c.in;
    }
    Parsed p("<?xml-stylesheet href='a.css' type='text/css'?><?xml-stylesheet href=\"b\"?><r/>",
             true);
    ExtPtrArray& sheets = p.info()->styleSheets;
    ASSERT_EQ(sheets.getSize(), 2);
    EXPECT_STREQ(static_cast<TreeNode*>(sheets.elementAt(0))->getTag(), "xml-stylesheet");
    EXPECT_EQ(attrs(static_cast<TreeNode*>(sheets.elementAt(0))), "href=a.css;type=text/css;");
    EXPECT_EQ(attrs(static_cast<TreeNode*>(sheets.elementAt(1))), "href=b;");
    // A prolog without element is released (the ASan run checks it).
    Parsed q("<?xml version='1.0'?><?xml-stylesheet href='x'?><!DOCTYPE d>", true);
    EXPECT_EQ(q.root, nullptr);
}

TEST(ParserProgress, ResetAmountsAtClosingTagsAndRemaining) {
    RecordingMonitor mon;
    Parsed p("<a><b/><c>x</c></a>", true, &mon);
    // 12 and 16 are the indexes of the '/' of the two closing tags.
    EXPECT_EQ(mon.calls, Lines({"reset 19", "amount 12", "amount 16", "rest 112"}));
    EXPECT_EQ(p.tree(), "a[b,c{x}]");  // the abort answer is not read
    RecordingMonitor none;
    TreeNode* root = nullptr;
    EXPECT_TRUE(TreeNode::customParseStringN("", 0, &none, &root, true));
    EXPECT_EQ(root, nullptr);
    EXPECT_TRUE(none.calls.empty());
}

// The out-root is required, cleared first, and left alone when the bytes
// cannot be converted; only the given length is read.
TEST(ParserEntry, OutRootLengthAndByteBuffers) {
    ParseEngine engine;
    engine.append("<a/>");
    EXPECT_TRUE(engine.appendN("x", 0) && !engine.appendN("x", -1));
    EXPECT_FALSE(TreeNode::customParse(engine, nullptr, nullptr, nullptr, true));
    TreeNode* root = reinterpret_cast<TreeNode*>(&engine);
    EXPECT_TRUE(TreeNode::customParseStringN("no markup", 9, nullptr, &root, true));
    EXPECT_EQ(root, nullptr);
    ASSERT_TRUE(TreeNode::customParseStringN("<a>xy<b/></a>", 5, nullptr, &root, true));
    EXPECT_EQ(dump(root), "a{xy}");
    root->deleteTree();
    DataBuffer data;
    data.append("<a>&amp;</a>", 12);
    RecordingLog log;
    ASSERT_TRUE(TreeNode::customParseUtf8Data(data, nullptr, log, &root, true));
    EXPECT_EQ(dump(root), "a{&}");
    EXPECT_EQ(bytesOf(data), "<a>&amp;</a>");  // parsed in place, handed back whole
    root->deleteTree();
    DataBuffer empty;
    root = reinterpret_cast<TreeNode*>(&log);
    EXPECT_FALSE(TreeNode::customParseData2(empty, nullptr, log, &root, true));
    EXPECT_EQ(root, reinterpret_cast<TreeNode*>(&log));
    EXPECT_EQ(log.lines, Lines({"E:Failed to convert XML data to utf-8 internal representation"}));
}

// Added after the sheets already there; text without a declaration first is
// refused; only 15 characters are compared, so the blank after the name is
// optional; a node outside any tree accepts and keeps nothing (ASan checks).
TEST(StyleSheetText, AddedAfterExistingSheetsOrRefused) {
    Parsed p("<?xml-stylesheet href='a'?><r/>", true);
    RecordingLog log;
    for (const char* bad : {static_cast<const char*>(nullptr), "no markup", "<  \n",
                            "<?xml-styleshee", "<b/><?xml-stylesheet href='x'?>"}) {
        EXPECT_FALSE(p.root->addStyleSheet(bad, log)) << (bad ? bad : "null");
    }
    EXPECT_TRUE(p.root->addStyleSheet(" junk <\n\t?XML-Stylesheet type='t' href='b' ?> rest", log));
    EXPECT_TRUE(p.root->addStyleSheet("<?xml-stylesheet>", log));
    StringBuffer out;
    p.root->appendStyleInfoToString(out);
    EXPECT_STREQ(out.getString(),
                 "<?xml-stylesheet href=\"a\" ?>\r\n<?xml-stylesheet type=\"t\" href=\"b\" ?>\r\n");
    EXPECT_EQ(p.info()->styleSheets.getSize(), 3);  // the last has no attributes to write
    EXPECT_TRUE(log.lines.empty());
    TreeNode lone;
    EXPECT_TRUE(lone.addStyleSheet("<?xml-stylesheet href='x'?>", log));
}

}  // namespace
