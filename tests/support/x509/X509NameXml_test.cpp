// A reader that only has a name's XML rendering (the CRL reader) walks its RDNs
// from the last to the first through appendToDN; that text must be the
// certificate's own DN text, so that CRL issuers and certificate issuers compare.
#include "support/x509/X509NameXml.h"

#include <gtest/gtest.h>

#include "X509TestUtil.h"
#include "support/asn1/Asn1Xml.h"
#include "support/base/XString.h"
#include "support/xml/ClsXml.h"

using namespace x509test;

TEST(OrvaneX509Names, RdnTextFromXmlMatchesDerText) {
    for (const CertFixture& c : kCerts) {
        SCOPED_TRACE(c.name);
        auto x = load(c.name);
        LogTree log;
        DataBuffer der;
        der.append(x->subjectDer().data(), static_cast<unsigned>(x->subjectDer().size()));
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
                do {
                    ASSERT_TRUE(OrvaneX509::appendToDN(*doc, withTags, style, fromXml, log));
                    ASSERT_TRUE(doc->tagEquals("set"));  // the cursor came back
                } while (doc->PreviousSibling2());
                ASSERT_TRUE(doc->GetParent2());
                ASSERT_TRUE(x->getDN(true, withTags, fromDer, log, style));
                EXPECT_STREQ(fromDer.getUtf8(), fromXml.getUtf8());
            }
        }
        EXPECT_FALSE(log.hasErrors()) << log.text();
    }
}
