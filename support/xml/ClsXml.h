// ClsXml: a cursor onto an element of a parsed XML document.
#pragma once

#include <memory>

#include "support/base/OrvaneCritSec.h"
#include "support/base/OrvaneObject.h"

class LogBase;
class StringBuffer;
class XString;

namespace ovxml {
struct Document;
}
namespace pugi {
struct xml_node_struct;
}

// One ClsXml is a cursor that stands on one element of a document. Several
// cursors may share a document (getChild hands out a new cursor into the same
// one); the document lives as long as any cursor into it. A document never
// changes once loaded: loadXml gives this cursor a new document and leaves
// cursors into the old one as they were, so shared cursors never dangle.
//
// Navigation (getChild2, GetParent2, NextSibling2, PreviousSibling2,
// FirstChild2, LastChild2, GetRoot2, SearchForContent2) moves this object in
// place and returns false, without moving, when there is no such element. Only
// elements count as children and siblings; comments and text are skipped.
//
// An element's content is the concatenation of its own text and CDATA
// children, entities decoded (the text of nested elements is not included).
//
// A new object (createNewCls) holds no document: navigation fails, counts are
// 0, content queries fail and getXml appends nothing.
//
// Reference counted: release with decRefCount. Each operation holds this
// object's critical section; a shared document is read only and needs none.
class ClsXml : public RefCountedObject {
  public:
    // A new empty object carrying one reference, which the caller gives up with
    // decRefCount (or hands to a _clsOwner). Null when memory is exhausted.
    static ClsXml* createNewCls();

    ~ClsXml() override;

    // Parses the text into a new document and moves this cursor to its root
    // element. The text must hold exactly one root element, with nothing but
    // whitespace, comments, processing instructions or a declaration around it.
    // keepLoneWhitespace true: an element whose only content is whitespace keeps
    // it as its content ("<utf8> </utf8>" has the content " "); false: such
    // whitespace is dropped. Whitespace-only text between elements is always
    // dropped. On failure: false, "Failed to parse XML." with the parser's
    // reason under "xmlError" and the byte offset under "xmlErrorOffset", and
    // this object keeps its previous document and position.
    bool loadXml(const StringBuffer& xml, bool keepLoneWhitespace, LogBase& log);

    // Appends the whole document (from the root element, wherever the cursor
    // is) as UTF-8 text without an XML declaration. compact true: on one line;
    // false: indented by two spaces with a newline after each element.
    // Appends nothing and returns true for an object without a document.
    bool getXml(bool compact, StringBuffer& out, LogBase& log);

    // Number of child elements of the current element.
    int get_NumChildren();
    // Moves to the child element at index i (0-based).
    bool getChild2(int i);
    bool FirstChild2();
    bool LastChild2();
    bool GetParent2();
    bool NextSibling2();
    bool PreviousSibling2();
    // Moves to the root element; false only without a document.
    bool GetRoot2();

    // A new cursor on the child element at index i, sharing this document, with
    // one reference for the caller; null when there is no such child.
    ClsXml* getChild(int i);

    // Exact, case-sensitive comparison with the current element's tag.
    bool tagEquals(const char* tag);
    // Appends the current element's tag; false without a document.
    bool getTag(StringBuffer& out);
    // Appends the tag of the child element at index i; false when none.
    bool getChildTag(int i, StringBuffer& out);

    // Appends the current element's content; false without a document.
    bool getContentSb(StringBuffer& out);
    // Appends the content of the first element with the tag: among the direct
    // children, or with searchDescendants among all descendants in document
    // order. False (nothing appended) when there is none; an element that is
    // found but empty gives true.
    bool getChildContentUtf8(const char* tag, StringBuffer& out, bool searchDescendants);

    // Appends the value of the current element's attribute; false when absent.
    bool getAttrValue(const char* name, StringBuffer& out);

    // Moves to the first element in document order whose tag and content both
    // equal the given texts exactly and that comes after the element under
    // `after` (an element's descendants come after it). A null `after` searches
    // the whole document, the root element included. `after` may be this object
    // and must stand in the same document, otherwise the result is false. False,
    // without moving, when no element matches.
    bool SearchForContent2(const ClsXml* after, XString& tag, XString& content);

  private:
    ClsXml() = default;
    bool moveTo(pugi::xml_node_struct* target);

    mutable OrvaneCritSec m_cs;
    std::shared_ptr<const ovxml::Document> m_doc;
    // The current element, a node of *m_doc; null without a document.
    pugi::xml_node_struct* m_node = nullptr;
};
