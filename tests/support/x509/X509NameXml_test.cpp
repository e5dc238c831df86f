// DN text from the XML rendering of a name against the text from its DER.
#include "support/x509/X509NameXml.h"

#include <gtest/gtest.h>

#include "X509Fixtures.h"
#include "support/asn1/Asn1Xml.h"
#include "support/base/XString.h"
#include "support/xml/ClsXml.h"

using namespace x509test;

TEST(OrvaneX509Names, RdnTextFromXmlMatchesDerText) {
    for (const char* name : kCerts) {
        SCOPED_TRACE(name);
        auto x = load(name);
        LogTree log;
        DerInput issuer = x->subjectDer();
        DataBuffer der;
        der.append(issuer.data(), static_cast<unsigned>(issuer.size()));
        StringBuffer xml;
        ASSERT_TRUE(Asn1Xml::derToXml(der, true, true, xml, nullptr, log));
        ClsXml* doc = ClsXml::createNewCls();
        ASSERT_NE(nullptr, doc);
        _clsOwner owner(doc);
        ASSERT_TRUE(doc->loadXml(xml, true, log));
        for (int style : {0, 1}) {
            for (bool withTags : {true, false}) {
                XString fromXml, fromDer;
                ASSERT_TRUE(doc->LastChild2());
                for (;;) {
                    ASSERT_TRUE(OrvaneX509::appendToDN(*doc, withTags, style, fromXml, log));
                    ASSERT_TRUE(doc->tagEquals("set"));  // the cursor came back
                    if (!doc->PreviousSibling2()) break;
                }
                ASSERT_TRUE(doc->GetParent2());
                ASSERT_TRUE(x->getDN(true, withTags, fromDer, log, style));
                EXPECT_EQ(std::string(fromDer.getUtf8()), fromXml.getUtf8());
            }
        }
        EXPECT_FALSE(log.hasErrors()) << log.text();
    }
}
