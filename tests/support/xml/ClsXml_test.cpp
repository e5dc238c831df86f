#include "support/xml/ClsXml.h"

#include <gtest/gtest.h>

#include <string>

#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"

namespace {

// An ASN.1 rendering of a one-RDN name, with a second RDN to walk to.
const char* kName =
    "<sequence>"
    "<set><sequence><oid>2.5.4.6</oid><printable>NZ</printable></sequence></set>"
    "<set><sequence><oid>2.5.4.3</oid><utf8>x</utf8></sequence></set>"
    "</sequence>";

// Owns one reference, as _clsOwner does, with typed access for the tests.
struct Xml {
    explicit Xml(ClsXml* p = ClsXml::createNewCls()) : x(p) {}
    ~Xml() { RefCountedObject::release(x); }
    ClsXml* operator->() { return x; }
    ClsXml* x;
};

bool load(ClsXml* x, const char* text, bool keepWs = true) {
    LogTree log;
    StringBuffer sb(text);
    const bool ok = x->loadXml(sb, keepWs, log);
    EXPECT_EQ(ok, !log.hasError("Failed to parse XML.")) << log.text();
    return ok;
}

std::string tag(ClsXml* x) {
    StringBuffer sb;
    return x->getTag(sb) ? sb.getString() : "<none>";
}

std::string content(ClsXml* x) {
    StringBuffer sb;
    return x->getContentSb(sb) ? sb.getString() : "<none>";
}

std::string xmlOf(ClsXml* x, bool compact) {
    StringBuffer sb;
    LogNull log;
    EXPECT_TRUE(x->getXml(compact, sb, log));
    return sb.getString();
}

TEST(ClsXml, CreatedWithOneReferenceForTheCaller) {
    ClsXml* x = ClsXml::createNewCls();
    ASSERT_NE(x, nullptr);
    EXPECT_EQ(x->getRefCount(), 1);
    EXPECT_TRUE(x->decRefCount());
}

TEST(ClsXml, CursorWalksTheNameTree) {
    Xml x;
    ASSERT_TRUE(load(x.x, kName));
    EXPECT_TRUE(x->tagEquals("sequence"));
    EXPECT_EQ(x->get_NumChildren(), 2);

    // Down to the common name, the way the CRL issuer is read: last RDN first.
    ASSERT_TRUE(x->LastChild2());
    EXPECT_TRUE(x->tagEquals("set"));
    ASSERT_TRUE(x->getChild2(0));
    ASSERT_TRUE(x->getChild2(1));
    EXPECT_EQ(tag(x.x), "utf8");
    EXPECT_EQ(content(x.x), "x");
    ASSERT_TRUE(x->PreviousSibling2());
    EXPECT_EQ(content(x.x), "2.5.4.3");
    EXPECT_FALSE(x->PreviousSibling2());
    EXPECT_EQ(content(x.x), "2.5.4.3");  // a failed move stays put

    ASSERT_TRUE(x->GetParent2());
    ASSERT_TRUE(x->GetParent2());
    ASSERT_TRUE(x->PreviousSibling2());
    StringBuffer cc;
    EXPECT_TRUE(x->getChildContentUtf8("printable", cc, true));
    EXPECT_STREQ(cc.getString(), "NZ");
    EXPECT_FALSE(x->PreviousSibling2());
    EXPECT_TRUE(x->NextSibling2());
    EXPECT_FALSE(x->NextSibling2());

    ASSERT_TRUE(x->GetParent2());
    EXPECT_FALSE(x->GetParent2());  // the document node is not an element
    EXPECT_TRUE(x->tagEquals("sequence"));
    EXPECT_FALSE(x->tagEquals("Sequence"));
    EXPECT_FALSE(x->tagEquals(nullptr));
    EXPECT_FALSE(x->getChild2(2));
    EXPECT_FALSE(x->getChild2(-1));
    EXPECT_TRUE(x->tagEquals("sequence"));

    ASSERT_TRUE(x->getChild2(1));
    ASSERT_TRUE(x->FirstChild2());
    ASSERT_TRUE(x->FirstChild2());
    EXPECT_EQ(tag(x.x), "oid");
    EXPECT_FALSE(x->LastChild2());  // a leaf has no children
    EXPECT_FALSE(x->FirstChild2());
    EXPECT_EQ(x->get_NumChildren(), 0);
    ASSERT_TRUE(x->GetRoot2());
    EXPECT_EQ(x->get_NumChildren(), 2);
}

TEST(ClsXml, ChildrenAreElementsOnly) {
    Xml x;
    ASSERT_TRUE(load(x.x, "<a>t1<!--c--><b/>t2<![CDATA[<c>]]><c k=\"v &amp; w\"/>&lt;t3</a>"));
    EXPECT_EQ(x->get_NumChildren(), 2);
    EXPECT_EQ(content(x.x), "t1t2<c><t3");  // own text and CDATA, in order
    StringBuffer t;
    EXPECT_TRUE(x->getChildTag(1, t));
    EXPECT_STREQ(t.getString(), "c");
    EXPECT_FALSE(x->getChildTag(2, t));
    ASSERT_TRUE(x->LastChild2());
    StringBuffer v;
    EXPECT_TRUE(x->getAttrValue("k", v));
    EXPECT_STREQ(v.getString(), "v & w");
    EXPECT_FALSE(x->getAttrValue("missing", v));
    EXPECT_TRUE(x->PreviousSibling2());
    EXPECT_EQ(tag(x.x), "b");
}

TEST(ClsXml, ContentQueriesAppend) {
    Xml x;
    ASSERT_TRUE(load(x.x, "<r><a>1</a><a>2</a><s><a>3</a><b>4</b></s><e></e></r>"));
    struct Case {
        const char* name;
        const char* tag;
        bool descendants;
        bool found;
        const char* want;  // appended after "pre:"
    } cases[] = {
        {"first direct child wins", "a", false, true, "pre:1"},
        {"direct only does not descend", "b", false, false, "pre:"},
        {"descendants in document order", "b", true, true, "pre:4"},
        {"found but empty", "e", false, true, "pre:"},
        {"absent", "zz", true, false, "pre:"},
        {"tags are case-sensitive", "A", true, false, "pre:"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        StringBuffer sb("pre:");
        EXPECT_EQ(x->getChildContentUtf8(c.tag, sb, c.descendants), c.found);
        EXPECT_STREQ(sb.getString(), c.want);
    }
    StringBuffer sb("pre:");
    ASSERT_TRUE(x->getChild2(1));
    EXPECT_TRUE(x->getContentSb(sb));
    EXPECT_STREQ(sb.getString(), "pre:2");
    // Descendant search stays inside the current element.
    ASSERT_TRUE(x->NextSibling2());
    StringBuffer none;
    EXPECT_FALSE(x->getChildContentUtf8("e", none, true));
}

TEST(ClsXml, SearchForContentInDocumentOrder) {
    const char* doc =
        "<root>"
        "<oid>1.1</oid>"
        "<seq><oid>2.5.29.20</oid><int>first</int></seq>"
        "<seq><oid>2.5.29.20</oid><int>second</int>"
        "<oid>2.5.29.20</oid><int>third</int></seq>"
        "<oid>2.5.29.20<x/></oid>"  // text around a child still counts as content
        "</root>";
    Xml x;
    ASSERT_TRUE(load(x.x, doc));
    XString oidTag("oid"), crlNumber("2.5.29.20");

    // The content of the element after the cursor, the way the CRL number is read.
    auto following = [](ClsXml* at) {
        StringBuffer sb;
        if (!at->NextSibling2()) return std::string("<none>");
        at->getContentSb(sb);
        at->PreviousSibling2();
        return std::string(sb.getString());
    };

    ASSERT_TRUE(x->SearchForContent2(nullptr, oidTag, crlNumber));
    EXPECT_EQ(following(x.x), "first");

    // Searching after itself finds the next one each time, then the one with
    // a child element, then nothing (and stays).
    ASSERT_TRUE(x->SearchForContent2(x.x, oidTag, crlNumber));
    EXPECT_EQ(following(x.x), "second");
    ASSERT_TRUE(x->SearchForContent2(x.x, oidTag, crlNumber));
    EXPECT_EQ(following(x.x), "third");
    ASSERT_TRUE(x->SearchForContent2(x.x, oidTag, crlNumber));
    EXPECT_EQ(x->get_NumChildren(), 1);
    EXPECT_FALSE(x->SearchForContent2(x.x, oidTag, crlNumber));
    EXPECT_EQ(x->get_NumChildren(), 1);

    // With another cursor as the starting point; the root itself is a candidate
    // only when searching from the start.
    Xml y(ClsXml::createNewCls());
    ASSERT_TRUE(load(y.x, "<a>v<a>v</a></a>"));
    XString a("a"), v("v");
    Xml start(y->getChild(0));
    ASSERT_NE(start.x, nullptr);
    ASSERT_TRUE(y->SearchForContent2(nullptr, a, v));
    EXPECT_EQ(y->get_NumChildren(), 1);  // the root
    EXPECT_FALSE(y->SearchForContent2(start.x, a, v));
    EXPECT_EQ(y->get_NumChildren(), 1);
    ASSERT_TRUE(y->GetRoot2());
    ASSERT_TRUE(start->GetParent2());
    ASSERT_TRUE(y->SearchForContent2(start.x, a, v));  // descendants come after
    EXPECT_EQ(y->get_NumChildren(), 0);

    // A cursor into another document is no starting point.
    EXPECT_FALSE(x->SearchForContent2(y.x, oidTag, crlNumber));
    XString missing("nope");
    EXPECT_FALSE(x->SearchForContent2(nullptr, oidTag, missing));
    Xml empty;
    EXPECT_FALSE(empty->SearchForContent2(nullptr, oidTag, crlNumber));
}

TEST(ClsXml, RefusesMalformedXmlAndKeepsTheOldTree) {
    struct Case {
        const char* name;
        const char* text;
    } cases[] = {
        {"empty", ""},
        {"whitespace only", "  \n"},
        {"unclosed", "<a><b></b>"},
        {"mismatched", "<a></b>"},
        {"two roots", "<a/><b/>"},
        {"text after the root", "<a/>junk"},
        {"text before the root", "junk<a/>"},
        {"not xml", "hello"},
        {"bad attribute", "<a k=v/>"},
        {"bad tag", "<1a/>"},
        {"truncated comment", "<a/><!--"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Xml x;
        ASSERT_TRUE(load(x.x, "<keep><me/></keep>"));
        ASSERT_TRUE(x->FirstChild2());
        LogTree log;
        StringBuffer sb(c.text);
        EXPECT_FALSE(x->loadXml(sb, true, log));
        EXPECT_TRUE(log.hasError("Failed to parse XML."));
        std::string reason;
        EXPECT_TRUE(log.findData("xmlError", reason));
        EXPECT_EQ(tag(x.x), "me");
        EXPECT_EQ(xmlOf(x.x, true), "<keep><me/></keep>");
    }
}

TEST(ClsXml, AcceptsMarkupAroundTheRoot) {
    Xml x;
    ASSERT_TRUE(load(x.x, "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<!-- c -->\n<a>1</a>\n"));
    EXPECT_EQ(content(x.x), "1");
    EXPECT_EQ(xmlOf(x.x, true), "<a>1</a>");
}

TEST(ClsXml, LoneWhitespaceFlag) {
    const char* text = "<r>\n  <utf8> </utf8>\n  <b> x </b>\n</r>";
    for (bool keep : {true, false}) {
        SCOPED_TRACE(keep);
        Xml x;
        ASSERT_TRUE(load(x.x, text, keep));
        EXPECT_EQ(content(x.x), "");  // indentation between elements is dropped
        StringBuffer sb;
        ASSERT_TRUE(x->getChildContentUtf8("utf8", sb, false));
        EXPECT_STREQ(sb.getString(), keep ? " " : "");
        sb.clear();
        ASSERT_TRUE(x->getChildContentUtf8("b", sb, false));
        EXPECT_STREQ(sb.getString(), " x ");
    }
}

TEST(ClsXml, SerialisesTheWholeDocumentFromAnyPosition) {
    Xml x;
    ASSERT_TRUE(load(x.x, "<a><b k=\"1\">x &amp; &lt;y&gt;</b><c/></a>"));
    ASSERT_TRUE(x->getChild2(1));
    EXPECT_EQ(xmlOf(x.x, true), "<a><b k=\"1\">x &amp; &lt;y&gt;</b><c/></a>");
    EXPECT_EQ(xmlOf(x.x, false), "<a>\n  <b k=\"1\">x &amp; &lt;y&gt;</b>\n  <c />\n</a>\n");
    // Appends.
    StringBuffer sb("X");
    LogNull log;
    EXPECT_TRUE(x->getXml(true, sb, log));
    EXPECT_EQ(std::string(sb.getString()).substr(0, 4), "X<a>");
    // What is written loads back to the same tree.
    Xml y;
    ASSERT_TRUE(load(y.x, xmlOf(x.x, false).c_str()));
    EXPECT_EQ(xmlOf(y.x, true), xmlOf(x.x, true));
}

TEST(ClsXml, EmptyObjectAnswersNothing) {
    Xml x;
    EXPECT_EQ(x->get_NumChildren(), 0);
    EXPECT_FALSE(x->getChild2(0));
    EXPECT_FALSE(x->GetParent2());
    EXPECT_FALSE(x->NextSibling2());
    EXPECT_FALSE(x->PreviousSibling2());
    EXPECT_FALSE(x->LastChild2());
    EXPECT_FALSE(x->GetRoot2());
    EXPECT_FALSE(x->tagEquals(""));
    EXPECT_EQ(x->getChild(0), nullptr);
    StringBuffer sb;
    EXPECT_FALSE(x->getContentSb(sb));
    EXPECT_FALSE(x->getChildContentUtf8("a", sb, true));
    EXPECT_EQ(xmlOf(x.x, true), "");
}

TEST(ClsXml, ChildCursorsOutliveTheirParentAndItsReloads) {
    Xml x;
    ASSERT_TRUE(load(x.x, kName));
    Xml child(x->getChild(1));
    ASSERT_NE(child.x, nullptr);
    EXPECT_EQ(child->getRefCount(), 1);
    EXPECT_TRUE(x->tagEquals("sequence"));  // getChild does not move the parent

    // Reloading the parent leaves the child in the old document.
    ASSERT_TRUE(load(x.x, "<other/>"));
    ASSERT_TRUE(child->GetParent2());
    EXPECT_EQ(child->get_NumChildren(), 2);
    EXPECT_EQ(xmlOf(child.x, true), kName);

    // Releasing the parent keeps the shared document alive for the child.
    RefCountedObject::release(x.x);
    x.x = nullptr;
    ASSERT_TRUE(child->getChild2(0));
    StringBuffer sb;
    EXPECT_TRUE(child->getChildContentUtf8("printable", sb, true));
    EXPECT_STREQ(sb.getString(), "NZ");
}

}  // namespace
