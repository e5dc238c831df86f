#include "support/xml/ClsXml.h"

#include <new>
#include <pugixml.hpp>

#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"

namespace ovxml {
struct Document {
    pugi::xml_document doc;
};
}  // namespace ovxml

namespace {

using pugi::xml_node;
using pugi::xml_node_struct;

bool isElement(const xml_node& n) {
    return n.type() == pugi::node_element;
}

xml_node firstElementChild(const xml_node& n) {
    for (xml_node c = n.first_child(); c; c = c.next_sibling())
        if (isElement(c)) return c;
    return xml_node();
}

xml_node lastElementChild(const xml_node& n) {
    for (xml_node c = n.last_child(); c; c = c.previous_sibling())
        if (isElement(c)) return c;
    return xml_node();
}

xml_node nextElementSibling(const xml_node& n) {
    for (xml_node c = n.next_sibling(); c; c = c.next_sibling())
        if (isElement(c)) return c;
    return xml_node();
}

xml_node previousElementSibling(const xml_node& n) {
    for (xml_node c = n.previous_sibling(); c; c = c.previous_sibling())
        if (isElement(c)) return c;
    return xml_node();
}

xml_node elementChildAt(const xml_node& n, int index) {
    if (index < 0) return xml_node();
    int i = 0;
    for (xml_node c = firstElementChild(n); c; c = nextElementSibling(c), ++i)
        if (i == index) return c;
    return xml_node();
}

// The element after n in document order, staying inside the subtree of limit
// (the whole document when limit is empty).
xml_node nextInDocumentOrder(const xml_node& n, const xml_node& limit) {
    xml_node child = firstElementChild(n);
    if (child) return child;
    for (xml_node cur = n; cur && isElement(cur) && cur != limit; cur = cur.parent()) {
        xml_node sib = nextElementSibling(cur);
        if (sib) return sib;
    }
    return xml_node();
}

bool appendContent(const xml_node& n, StringBuffer& out) {
    for (xml_node c = n.first_child(); c; c = c.next_sibling()) {
        if (c.type() == pugi::node_pcdata || c.type() == pugi::node_cdata) {
            if (!out.append(c.value())) return false;
        }
    }
    return true;
}

bool contentEquals(const xml_node& n, const char* text) {
    StringBuffer sb;
    return appendContent(n, sb) && sb.equals(text);
}

bool isWhitespaceOnly(const char* s) {
    for (; *s; ++s)
        if (*s != ' ' && *s != '\t' && *s != '\r' && *s != '\n') return false;
    return true;
}

class SbWriter : public pugi::xml_writer {
  public:
    explicit SbWriter(StringBuffer& out) : m_out(out) {}
    void write(const void* data, size_t size) override {
        if (!m_out.appendN(static_cast<const char*>(data), static_cast<unsigned>(size)))
            m_failed = true;
    }
    bool failed() const { return m_failed; }

  private:
    StringBuffer& m_out;
    bool m_failed = false;
};

}  // namespace

ClsXml* ClsXml::createNewCls() {
    ClsXml* x = new (std::nothrow) ClsXml();
    if (x) x->incRefCount();
    return x;
}

ClsXml::~ClsXml() = default;

bool ClsXml::loadXml(const StringBuffer& xml, bool keepLoneWhitespace, LogBase& log) {
    CritSecExitor lock(&m_cs);
    std::shared_ptr<ovxml::Document> doc;
    try {
        doc = std::make_shared<ovxml::Document>();
    } catch (...) {
        log.logError("Out of memory for the XML document.");
        return false;
    }
    // Fragment mode so that stray text beside the root element is kept as nodes
    // and can be refused below; the default mode would drop it silently.
    unsigned flags = pugi::parse_default | pugi::parse_fragment;
    if (keepLoneWhitespace) flags |= pugi::parse_ws_pcdata_single;
    pugi::xml_parse_result r =
        doc->doc.load_buffer(xml.getString(), xml.getSize(), flags, pugi::encoding_utf8);
    const char* reason = nullptr;
    if (!r) {
        reason = r.description();
    } else {
        int elements = 0;
        for (xml_node c = doc->doc.first_child(); c; c = c.next_sibling()) {
            if (isElement(c)) {
                ++elements;
            } else if ((c.type() == pugi::node_pcdata || c.type() == pugi::node_cdata) &&
                       !isWhitespaceOnly(c.value())) {
                reason = "Text outside the root element";
                break;
            }
        }
        if (!reason && elements == 0) reason = "No root element";
        if (!reason && elements > 1) reason = "More than one root element";
    }
    if (reason) {
        log.logError("Failed to parse XML.");
        log.logData("xmlError", reason);
        log.LogDataLong("xmlErrorOffset", static_cast<long>(r.offset));
        return false;
    }
    m_node = doc->doc.document_element().internal_object();
    m_doc = std::move(doc);
    return true;
}

bool ClsXml::getXml(bool compact, StringBuffer& out, LogBase& log) {
    CritSecExitor lock(&m_cs);
    if (!m_doc) return true;
    SbWriter writer(out);
    unsigned flags =
        pugi::format_no_declaration | (compact ? pugi::format_raw : pugi::format_indent);
    m_doc->doc.document_element().print(writer, "  ", flags, pugi::encoding_utf8);
    if (writer.failed()) {
        log.logError("Out of memory while writing XML.");
        return false;
    }
    return true;
}

int ClsXml::get_NumChildren() {
    CritSecExitor lock(&m_cs);
    int n = 0;
    for (xml_node c = firstElementChild(xml_node(m_node)); c; c = nextElementSibling(c)) ++n;
    return n;
}

// Every navigation computes its target under the lock and moves only when the
// target exists. pugixml answers an empty node for any step from an empty one.
bool ClsXml::moveTo(pugi::xml_node_struct* target) {
    if (!target) return false;
    m_node = target;
    return true;
}

bool ClsXml::getChild2(int i) {
    CritSecExitor lock(&m_cs);
    return moveTo(elementChildAt(xml_node(m_node), i).internal_object());
}

bool ClsXml::FirstChild2() {
    CritSecExitor lock(&m_cs);
    return moveTo(firstElementChild(xml_node(m_node)).internal_object());
}

bool ClsXml::LastChild2() {
    CritSecExitor lock(&m_cs);
    return moveTo(lastElementChild(xml_node(m_node)).internal_object());
}

bool ClsXml::NextSibling2() {
    CritSecExitor lock(&m_cs);
    return moveTo(nextElementSibling(xml_node(m_node)).internal_object());
}

bool ClsXml::PreviousSibling2() {
    CritSecExitor lock(&m_cs);
    return moveTo(previousElementSibling(xml_node(m_node)).internal_object());
}

bool ClsXml::GetParent2() {
    CritSecExitor lock(&m_cs);
    // The document node above the root element is not an element.
    xml_node parent = xml_node(m_node).parent();
    return isElement(parent) && moveTo(parent.internal_object());
}

bool ClsXml::GetRoot2() {
    CritSecExitor lock(&m_cs);
    return m_doc && moveTo(m_doc->doc.document_element().internal_object());
}

ClsXml* ClsXml::getChild(int i) {
    CritSecExitor lock(&m_cs);
    if (!m_node) return nullptr;
    xml_node child = elementChildAt(xml_node(m_node), i);
    if (!child) return nullptr;
    ClsXml* x = createNewCls();
    if (!x) return nullptr;
    x->m_doc = m_doc;
    x->m_node = child.internal_object();
    return x;
}

bool ClsXml::tagEquals(const char* tag) {
    CritSecExitor lock(&m_cs);
    if (!m_node || !tag) return false;
    StringBuffer name(xml_node(m_node).name());
    return name.equals(tag);
}

bool ClsXml::getTag(StringBuffer& out) {
    CritSecExitor lock(&m_cs);
    if (!m_node) return false;
    return out.append(xml_node(m_node).name());
}

bool ClsXml::getChildTag(int i, StringBuffer& out) {
    CritSecExitor lock(&m_cs);
    if (!m_node) return false;
    xml_node child = elementChildAt(xml_node(m_node), i);
    return child && out.append(child.name());
}

bool ClsXml::getContentSb(StringBuffer& out) {
    CritSecExitor lock(&m_cs);
    if (!m_node) return false;
    return appendContent(xml_node(m_node), out);
}

bool ClsXml::getChildContentUtf8(const char* tag, StringBuffer& out, bool searchDescendants) {
    CritSecExitor lock(&m_cs);
    if (!m_node || !tag) return false;
    const xml_node self(m_node);
    StringBuffer wanted(tag);
    if (searchDescendants) {
        for (xml_node n = nextInDocumentOrder(self, self); n; n = nextInDocumentOrder(n, self))
            if (wanted.equals(n.name())) return appendContent(n, out);
    } else {
        for (xml_node c = firstElementChild(self); c; c = nextElementSibling(c))
            if (wanted.equals(c.name())) return appendContent(c, out);
    }
    return false;
}

bool ClsXml::getAttrValue(const char* name, StringBuffer& out) {
    CritSecExitor lock(&m_cs);
    if (!m_node || !name) return false;
    pugi::xml_attribute a = xml_node(m_node).attribute(name);
    return a && out.append(a.value());
}

bool ClsXml::SearchForContent2(const ClsXml* after, XString& tag, XString& content) {
    // Read the other cursor under its own lock, released before taking ours, so
    // two cursors searching after each other cannot deadlock.
    const ovxml::Document* afterDoc = nullptr;
    xml_node_struct* afterNode = nullptr;
    if (after && after != this) {
        CritSecExitor otherLock(&after->m_cs);
        afterDoc = after->m_doc.get();
        afterNode = after->m_node;
    }
    CritSecExitor lock(&m_cs);
    if (!m_node) return false;
    if (after == this) {
        afterDoc = m_doc.get();
        afterNode = m_node;
    }
    xml_node n;
    if (after) {
        if (afterDoc != m_doc.get() || !afterNode) return false;
        n = nextInDocumentOrder(xml_node(afterNode), xml_node());
    } else {
        n = m_doc->doc.document_element();
    }
    StringBuffer wantedTag;
    wantedTag.append(tag.getUtf8Sb());
    for (; n; n = nextInDocumentOrder(n, xml_node())) {
        if (wantedTag.equals(n.name()) && contentEquals(n, content.getUtf8())) {
            m_node = n.internal_object();
            return true;
        }
    }
    return false;
}
