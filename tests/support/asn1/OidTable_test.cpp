#include "support/asn1/OidTable.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

// The content octets of each row are written by hand beside the dotted text;
// a slip in either would make a lookup miss silently.
TEST(OidTable, OctetsMatchTheDottedTextAndNothingRepeats) {
    std::set<std::string> dotted, names;
    for (const KnownOid* k : oids::kAll) {
        SCOPED_TRACE(k->name);
        unsigned char buf[32];
        size_t n = 0;
        ASSERT_TRUE(der::textToOid(k->dotted, buf, sizeof buf, &n));
        EXPECT_TRUE(k->bytes().equals(buf, n));
        EXPECT_EQ(k, oids::find(DerInput(buf, n)));
        EXPECT_TRUE(dotted.insert(k->dotted).second && names.insert(k->name).second);
    }
}
