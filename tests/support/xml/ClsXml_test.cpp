#include "support/xml/ClsXml.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"
#include "support_common/TestUtil.h"

namespace {

// An ASN.1 rendering of a two-RDN name.
const char* kName =
    "<sequence>"
    "<set><sequence><oid>2.5.4.6</oid><printable>NZ</printable></sequence></set>"
    "<set><sequence><oid>2.5.4.3</oid><utf8>x</utf8></sequence></set>"
    "</sequence>";

// Owns the one reference createNewCls (or getChild) hands out.
struct Xml {
    explicit Xml(ClsXml* p = ClsXml::createNewCls()) : x(p) {}
    ~Xml() { RefCountedObject::release(x); }
    ClsXml* operator->() { return x; }
    ClsXml* x;
};

// The parse error, or "" when the text loaded.
std::string load(ClsXml* x, const char* text, bool keepWs = true) {
    LogTree log;
    const bool ok = x->loadXml(StringBuffer(text), keepWs, log);
    std::string reason;
    return ovtest::errors(log) + (ok || log.findData("xmlError", reason) ? "" : " without reason");
}

// "tag=content" of the element under the cursor.
std::string at(ClsXml* x) {
    StringBuffer t, c;
    return x->getTag(t) && x->getContentSb(c) ? std::string(t.getString()) + "=" + c.getString()
                                              : "<none>";
}

std::string xmlOf(ClsXml* x, bool compact) {
    StringBuffer sb;
    LogNull log;
    EXPECT_TRUE(x->getXml(compact, sb, log));
    return sb.getString();
}

TEST(ClsXml, MovesFromTheRootAndStaysPutWhenAMoveFails) {
    struct Case {
        const char* moves;  // F first, L last, N next, V previous, P parent, a digit: that child
        const char* want;   // a '!' for each move that failed, then where the cursor is
    } cases[] = {
        {"L01", "utf8=x"},      {"L01V", "oid=2.5.4.3"},    {"L01VV", "!oid=2.5.4.3"},
        {"0P", "sequence="},    {"P", "!sequence="},        {"2", "!sequence="},
        {"FFF", "oid=2.5.4.6"}, {"FFFFL", "!!oid=2.5.4.6"}, {"0NN", "!set="},
    };
    bool (ClsXml::*const moves[])() = {&ClsXml::FirstChild2, &ClsXml::LastChild2,
                                       &ClsXml::NextSibling2, &ClsXml::PreviousSibling2,
                                       &ClsXml::GetParent2};
    Xml x;
    ASSERT_EQ(load(x.x, kName), "");
    for (const auto& c : cases) {
        ASSERT_TRUE(x->GetRoot2());
        std::string failed;
        for (const char* m = c.moves; *m; ++m) {
            const char* k = strchr("FLNVP", *m);
            if (!(k ? (x.x->*moves[k - "FLNVP"])() : x->getChild2(*m - '0'))) failed += '!';
        }
        EXPECT_EQ(failed + at(x.x), c.want) << c.moves;
    }
}

// Content is the element's own text (CDATA and entities included, comments and
// child elements left out); getChildContentUtf8 appends.
TEST(ClsXml, ContentIsOwnTextAndChildrenAreElements) {
    Xml x;
    ASSERT_EQ(load(x.x,
                   "<r>t1<!--c--><a>1</a>t2<![CDATA[<c>]]><a k=\"v &amp; w\">2</a>"
                   "<s><a>3</a><b>4</b></s><e></e>&lt;t3</r>"),
              "");
    EXPECT_EQ(at(x.x), "r=t1t2<c><t3");
    std::string got;
    for (const char* q : {"a", "b", "+b", "e", "+A"}) {  // '+': among all descendants
        StringBuffer sb("|");
        got += x->getChildContentUtf8(q + (*q == '+'), sb, *q == '+') ? sb.getString() : "|none";
    }
    EXPECT_EQ(got, "|1|none|4||none");
    StringBuffer sb("pre:");
    EXPECT_TRUE(x->getChildTag(3, sb) && !x->getChildTag(4, sb) && x->getChild2(1) &&
                x->getAttrValue("k", sb) && !x->getAttrValue("missing", sb));
    EXPECT_STREQ(sb.getString(), "pre:ev & w");
    EXPECT_TRUE(x->GetParent2() && x->getChild2(2));
    EXPECT_FALSE(x->getChildContentUtf8("e", sb, true));  // only inside the current element
}

TEST(ClsXml, SearchForContentGoesInDocumentOrder) {
    Xml x, other;
    ASSERT_EQ(load(x.x, "<oid>v<r><oid>v</oid><n>1</n><oid>v<x/></oid></r><oid>w</oid></oid>"), "");
    ASSERT_EQ(load(other.x, "<oid>v</oid>"), "");
    XString tag("oid"), v("v");
    ASSERT_TRUE(x->SearchForContent2(nullptr, tag, v));
    EXPECT_EQ(x->get_NumChildren(), 2);              // the root itself
    ASSERT_TRUE(x->SearchForContent2(x.x, tag, v));  // descendants come after
    ASSERT_TRUE(x->NextSibling2());
    EXPECT_EQ(at(x.x), "n=1");
    ASSERT_TRUE(x->SearchForContent2(x.x, tag, v));  // text around a child counts
    EXPECT_EQ(x->get_NumChildren(), 1);
    EXPECT_FALSE(x->SearchForContent2(x.x, tag, v) || x->SearchForContent2(other.x, tag, v));
    EXPECT_EQ(x->get_NumChildren(), 1);  // stays
}

// A refused text leaves the old tree and cursor. Whitespace between elements is
// dropped, and lone whitespace content kept only when asked.
TEST(ClsXml, LoadsWellFormedXmlOnly) {
    for (const char* text : {"", "  \n", "<a><b></b>", "<a></b>", "<a/><b/>", "<a/>junk",
                             "junk<a/>", "<a k=v/>", "<a/><!--"}) {
        Xml x;
        ASSERT_EQ(load(x.x, "<keep><me/></keep>"), "");
        ASSERT_TRUE(x->FirstChild2());
        EXPECT_EQ(load(x.x, text), "Failed to parse XML.") << text;
        EXPECT_EQ(at(x.x) + xmlOf(x.x, true), "me=<keep><me/></keep>") << text;
    }
    Xml x, y;
    const char* text = "<?xml version=\"1.0\"?>\n<!-- c -->\n<r>\n  <u> </u>\n</r>\n";
    ASSERT_EQ(load(x.x, text) + load(y.x, text, false), "");
    EXPECT_EQ(at(x.x) + xmlOf(x.x, true) + " " + xmlOf(y.x, true), "r=<r><u> </u></r> <r><u/></r>");
}

TEST(ClsXml, ChildCursorsOutliveTheirParentAndItsReloads) {
    Xml x;
    StringBuffer sb;
    EXPECT_FALSE(x->getChild2(0) || x->GetParent2() || x->GetRoot2() || x->tagEquals("") ||
                 x->getContentSb(sb) || x->getChildContentUtf8("a", sb, true) || x->getChild(0));
    EXPECT_EQ(x->get_NumChildren() + x->getRefCount(), 1);  // no document, one reference
    EXPECT_EQ(xmlOf(x.x, true), "");
    ASSERT_EQ(load(x.x, kName), "");
    Xml child(x->getChild(1));
    ASSERT_TRUE(child.x && child->getRefCount() == 1);
    EXPECT_TRUE(x->tagEquals("sequence"));  // getChild does not move the parent
    ASSERT_EQ(load(x.x, "<other/>"), "");
    RefCountedObject::release(x.x);
    x.x = nullptr;
    ASSERT_TRUE(child->getChild2(0));
    EXPECT_EQ(at(child.x), "sequence=");
    EXPECT_EQ(xmlOf(child.x, true), kName);
}

}  // namespace
