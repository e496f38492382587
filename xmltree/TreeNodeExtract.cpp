// Content extraction: gathering the text of a subtree, and picking out the
// node that carries the most (or the first significant) text.

#include <strings.h>

#include <cstring>

#include "foundation/DataBuffer.h"
#include "foundation/ExtPtrArray.h"
#include "foundation/StringBuffer.h"
#include "xmltree/TreeNode.h"
#include "xmltree/TreeWalk.h"

class TreeExtract {
  public:
    static int contentSize(const TreeNode* n) { return n->content ? n->content->getSize() : 0; }
    static const StringBuffer* content(const TreeNode* n) { return n->content; }
    static const AttributeSet* attributes(const TreeNode* n) { return n->attributes; }
    static ExtPtrArray* children(const TreeNode* n) { return n->children; }

    // The names of a "|"-separated skip list, released when the list goes.
    class SkipList {
      public:
        explicit SkipList(const char* names) {
            if (names) StringBuffer(names).split(m_names, '|', false, false);
        }
        ~SkipList() { m_names.removeAllObjects(); }
        SkipList(const SkipList&) = delete;
        SkipList& operator=(const SkipList&) = delete;

        bool cuts(const TreeNode* n) const {
            int count = m_names.getSize();
            if (count == 0) return false;
            const char* tag = n->getTag();
            for (int i = 0; i < count; ++i) {
                if (m_names.sbAt(i)->equals(tag)) return true;
            }
            return false;
        }

      private:
        ExtPtrArray m_names;
    };

    static bool sameTag(const TreeNode* n, const char* tag) {
        const char* t = n->getTag();
        return t[0] == tag[0] && std::strcmp(t, tag) == 0;
    }

    static void accumulate(TreeNode* start, const char* tag, StringBuffer& out,
                           const char* skipTags);
    static int countLetters(const char* text, int size);
    static bool isSignificant(const TreeNode* n, int minLength, ExtPtrArray& skipTags,
                              int numSkipTags, ExtPtrArray& excludeTexts);
    static void appendBase64Piece(const TreeNode* n, DataBuffer& out, ExtPtrArray* externals);
};

void TreeNode::getAllContent(StringBuffer& out, char separator) {
    walkBreadthFirst(this, [&](TreeNode* n) {
        const char* text = n->getContent();
        if (text) out.append(text);
        out.appendChar(separator);
        return WalkStep::kDescend;
    });
    out.shorten(1);
}

// Blank-separated texts of the nodes whose tag is `tag` (every node when tag
// is null); a node named in the skip list gives its text but not its subtree.
void TreeExtract::accumulate(TreeNode* start, const char* tag, StringBuffer& out,
                             const char* skipTags) {
    SkipList skip(skipTags);
    bool first = true;
    walkBreadthFirst(start, [&](TreeNode* n) {
        const char* text = (!tag || sameTag(n, tag)) ? n->getContent() : nullptr;
        if (text) {
            if (!first) out.appendChar(' ');
            out.append(text);
            first = false;
        }
        return skip.cuts(n) ? WalkStep::kSkipChildren : WalkStep::kDescend;
    });
}

void TreeNode::accumulateContent(StringBuffer& out, const char* skipTags) {
    TreeExtract::accumulate(this, nullptr, out, skipTags);
}

void TreeNode::accumulateTagContent(const char* tagName, StringBuffer& out, const char* skipTags) {
    if (tagName) TreeExtract::accumulate(this, tagName, out, skipTags);
}

void TreeNode::collectTagContent(const char* tagName, StringConsumer* consumer) {
    if (!tagName || !consumer) return;
    walkBreadthFirst(this, [&](TreeNode* n) {
        if (TreeExtract::sameTag(n, tagName)) {
            const char* text = n->getContent();
            if (text) consumer->consumeString(text);
        }
        return WalkStep::kDescend;
    });
}

// A short content marked src="ext" is an index into the caller's externals;
// anything of 8 bytes or more is base64, whatever its attributes say.
void TreeExtract::appendBase64Piece(const TreeNode* n, DataBuffer& out, ExtPtrArray* externals) {
    const char* text = n->getContent();
    if (!text) return;
    if (contentSize(n) >= 8) {
        out.appendEncoded(text, "base64");
        return;
    }
    const AttributeSet* attrs = attributes(n);
    if (externals && attrs && attrs->hasAttrWithValue("src", "ext")) {
        int index = content(n) ? content(n)->intValue() : 0;
        const DataBuffer* data = static_cast<const DataBuffer*>(externals->elementAt(index));
        if (data) out.append(*data);
        return;
    }
    out.appendEncoded(text, "base64");
}

void TreeNode::accumulateBase64Content(DataBuffer& out, ExtPtrArray* externals) {
    walkBreadthFirst(this, [&](TreeNode* n) {
        TreeExtract::appendBase64Piece(n, out, externals);
        return WalkStep::kDescend;
    });
}

// Letters of ASCII only; "&nbsp;" is padding, not text, so its letters do not
// count, while any other entity's name does.
int TreeExtract::countLetters(const char* text, int size) {
    int letters = 0;
    int i = 0;
    while (i < size) {
        char c = text[i];
        if (c == '&') {
            i += (size - i >= 6 && std::memcmp(text + i, "&nbsp;", 6) == 0) ? 6 : 1;
            continue;
        }
        if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')) ++letters;
        ++i;
    }
    return letters;
}

bool TreeExtract::isSignificant(const TreeNode* n, int minLength, ExtPtrArray& skipTags,
                                int numSkipTags, ExtPtrArray& excludeTexts) {
    int size = contentSize(n);
    if (size <= minLength) return false;
    const char* tag = n->getTag();
    for (int i = 0; i < numSkipTags; ++i) {
        const StringBuffer* name = skipTags.sbAt(i);
        if (name && strcasecmp(name->getString(), tag) == 0) return false;
    }
    const StringBuffer* text = content(n);
    if (!text) return minLength <= 0;
    int numExcluded = excludeTexts.getSize();
    for (int i = 0; i < numExcluded; ++i) {
        const StringBuffer* bad = excludeTexts.sbAt(i);
        if (bad && text->containsSubstring(bad->getString())) return false;
    }
    return countLetters(text->getString(), size) >= minLength;
}

// Depth-first pre-order (document order) on an explicit stack, stopping at
// the first result so that a large document is not read to its end.
TreeNode* TreeNode::firstSignificantContent(int skipCount, int minLength, ExtPtrArray& skipTags,
                                            ExtPtrArray& excludeTexts) {
    int numSkipTags = skipTags.getSize();
    int found = 0;
    ExtPtrArray stack;
    stack.append(this);
    while (stack.getSize() > 0) {
        TreeNode* n = static_cast<TreeNode*>(stack.pop());
        if (TreeExtract::isSignificant(n, minLength, skipTags, numSkipTags, excludeTexts) &&
            ++found > skipCount) {
            return n;
        }
        ExtPtrArray* kids = TreeExtract::children(n);
        if (!kids) continue;
        for (int i = kids->getSize() - 1; i >= 0; --i) {
            void* kid = kids->elementAt(i);
            if (kid) stack.append(kid);
        }
    }
    return nullptr;
}

TreeNode* TreeNode::findBiggestContent(int minSize, int maxSize, const char* excludeTag) {
    TreeNode* best = nullptr;
    int bestSize = 0;
    walkBreadthFirst(this, [&](TreeNode* n) {
        int size = TreeExtract::contentSize(n);
        if (size > bestSize && size >= minSize && size <= maxSize &&
            (!excludeTag || strcasecmp(n->getTag(), excludeTag) != 0)) {
            best = n;
            bestSize = size;
        }
        return WalkStep::kDescend;
    });
    return best;
}
