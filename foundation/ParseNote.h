#ifndef XMLTREE_FOUNDATION_PARSENOTE_H
#define XMLTREE_FOUNDATION_PARSENOTE_H

// What LogBase::logParseNote reports: the places where the tree a parse
// returns differs from the text it read, and where the parser recovered from
// markup that is not XML. Each note comes with a span of the parsed text
// (byte offset and length) and, where one is concerned, the element.

namespace xmltree {

enum class ParseNote : unsigned char {
    // Every element made; the span runs from its '<' to the end of its name.
    kElementStart,

    // Parts of the text the tree does not keep, or keeps elsewhere.
    kComment,              // a comment, passed over; the span is the whole comment
    kCommentUnclosed,      // a comment that never ends, at its "<!--"; "Unclosed comment" follows
    kDeclarationDropped,   // '<!' markup other than a comment, CDATA or DOCTYPE; passed over
    kInstructionMoved,     // a processing instruction inside or after the top-level element
                           // goes to the prolog
    kCharReference,        // "&#...;" kept as text; the span is the reference
    kEntityReference,      // "&name;" other than the five predefined ones, kept as text
    kTextJoined,           // a text run appended to text the element already has, or
                           // after one of its children; the span is the run
    kTextAfterCdata,       // text between "]]>" and the next '<', dropped
    kTextOutside,          // text outside the top-level element, dropped
    kRootReplaced,         // a top-level element destroyed by a later one; at its '<'
    kRootDropped,          // a later top-level element still open at the end, not returned
    kNulByte,              // a NUL byte before the end of the text; the parse ends there
    kEncodingUnconverted,  // a declared encoding that cannot be converted; the span is
                           // its name; the bytes are parsed as they are

    // Places where the text is not XML and the parser recovered.
    kInvalidUtf8,            // bytes that do not form UTF-8; kept as they are
    kClosingTagUnended,      // a closing tag cut short; "Error in closing tag" follows
    kClosingTagMismatch,     // a closing tag whose name (the span) is not the element's tag
    kClosingTagStray,        // a closing tag outside any element, ignored
    kUnclosedAtEnd,          // an element still open at the end; the span is empty
    kDoctypeUnclosed,        // a DOCTYPE that never ends; "Failed to parse DTD" follows
    kTagCutOff,              // an opening tag cut off by the end; no element is made
    kBadElementName,         // an element name (the span) that is not an XML name
    kBadAttributeName,       // an attribute name (the span) that is not an XML name
    kDuplicateAttribute,     // a name (the span) already given in the same tag
    kAttributeWithoutValue,  // a name with no '=' after it; the value is empty
    kUnquotedValue,          // a value without quotes, read up to the next quote of either kind
};

}  // namespace xmltree

#endif
