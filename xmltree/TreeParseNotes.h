#ifndef XMLTREE_TREEPARSENOTES_H
#define XMLTREE_TREEPARSENOTES_H

// Internal to the library: the parser's side of LogBase::logParseNote. The
// parser makes one ParseNoter per parse, and only for a logger that asks for
// notes. The opening tags are noted in a main loop of its own; elsewhere each
// call site is guarded by that pointer, so a parse without such a logger
// pays a test at a text run, an attribute or a rare branch, and nothing
// else. The noter reads the text around the places the parser shows it,
// never moves the parser's cursor and never changes the tree.

#include <string>
#include <unordered_set>
#include <vector>

#include "foundation/LogBase.h"

namespace xmltree {

class ParseNoter {
  public:
    ParseNoter(LogBase& log, const char* text, const char* textEnd)
        : m_log(log), m_text(text), m_end(textEnd) {}

    // A NUL byte before the end, and bytes that are not UTF-8, over the
    // whole text; called before the parse starts.
    void checkText();

    // A span of the text from `from` to `to`.
    void note(ParseNote what, const char* from, const char* to, const TreeNode* element);
    void note(ParseNote what, int from, int to, const TreeNode* element) {
        note(what, m_text + from, m_text + to, element);
    }

    // An opening tag whose name starts at `name` is about to be read;
    // `topLevel` says whether it is outside any element.
    void tagStarts(const char* name, bool topLevel);
    // The element made from the name [name, nameEnd) of that tag; notes it,
    // and its name when that is not an XML name.
    void elementStart(const char* name, const char* nameEnd, const TreeNode* node);
    // An opening tag whose name starts at `name` runs into the end.
    void tagCutOff(const char* name);
    // One attribute of `element`: its name as written [raw, rawEnd) and as
    // it is stored (cleaned) [name, name + nameLen).
    void attribute(const char* raw, const char* rawEnd, const char* name, int nameLen,
                   const TreeNode* element);
    // References other than the five predefined ones in [from, to).
    void references(const char* from, const char* to, const TreeNode* element);
    // A text run about to be appended to the content of `element`.
    void textRun(const char* run, int len, const TreeNode* element);
    // Bytes between "]]>" and the next '<', which the parser drops.
    void afterCdata(const char* from, const char* to, const TreeNode* element);
    // Bytes outside the top-level element, which the parser drops.
    void outside(const char* from, const char* to);
    // A closing tag, `slash` on its '/'; `open` is the element it closes.
    void closingTag(const char* slash, const TreeNode* open);
    // A top-level element is finished; `replaced` is the one it destroys.
    void rootFinished(const TreeNode* replaced);
    // The end of the parse at `stop`: `open` is the innermost element still
    // open; `dropped` says whether its top-level element is not returned.
    void openAtEnd(const TreeNode* open, bool dropped, const char* stop);

  private:
    int offsetOf(const char* p) const { return static_cast<int>(p - m_text); }
    void checkUtf8(const char* from, const char* to);

    LogBase& m_log;
    const char* m_text;
    const char* m_end;
    int m_tagAt = -1;   // the '<' of the tag being read
    int m_rootAt = -1;  // the '<' of the top-level element being read
    int m_rootLen = 0;
    int m_completedAt = -1;  // the '<' of the last finished one
    int m_completedLen = 0;
    // Attribute names of the tag being read: a list while short, a set after.
    std::vector<std::string> m_tagNames;
    std::unordered_set<std::string> m_tagSet;
};

}  // namespace xmltree

#endif
