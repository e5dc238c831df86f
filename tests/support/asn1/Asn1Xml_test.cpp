#include "support/asn1/Asn1Xml.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <pugixml.hpp>
#include <regex>
#include <sstream>

#include "support/asn1/Asn1TestUtil.h"
#include "support/asn1/MpMath.h"

using namespace asn1test;

namespace {

// <fixture>.xml beside each input, plus kitchen.pretty.xml. OV_UPDATE_GOLDEN=1
// rewrites them instead (review the difference before committing it).
TEST(Asn1Xml, GoldenFiles) {
    std::vector<std::pair<std::string, bool>> goldens = {{"kitchen.pretty.xml", false}};
    for (std::string f : kFixtures) goldens.push_back({f.substr(0, f.size() - 4) + ".xml", true});
    for (const auto& g : goldens) {
        std::string path = ovtest::dataPath("asn1/" + g.first);
        std::string xml = xmlOf(fixture(g.first.substr(0, g.first.find('.')) + ".der"), g.second);
        if (getenv("OV_UPDATE_GOLDEN")) ovtest::writeFile(path, xml);
        EXPECT_EQ(ovtest::readFile(path), xml) << g.first;
    }
}

// Every item `openssl asn1parse` lists must be the next element, at its depth,
// with the element name the type maps to and, where openssl prints a value we
// can compare, the same value.
TEST(Asn1Xml, AgreesWithOpensslAsn1parse) {
    // openssl's type names and the elements they stand for.
    const std::string table =
        "SEQUENCE=sequence;SET=set;BOOLEAN=bool;INTEGER=int;ENUMERATED=enum;BIT STRING=bits;"
        "OCTET STRING=octets;NULL=null;OBJECT=oid;UTF8STRING=utf8;T61STRING=t61;"
        "PRINTABLESTRING=printable;IA5STRING=ia5;NUMERICSTRING=numeric;VISIBLESTRING=visible;"
        "UTCTIME=utctime;GENERALIZEDTIME=gentime;BMPSTRING=bmp;UNIVERSALSTRING=universalString;"
        "GENERALSTRING=universal 27/0;cont=contextSpecific;appl=application;priv=private";
    std::map<std::string, std::string> names;
    const std::regex pair("([^=;]+)=([^;]+)");
    for (std::sregex_iterator it(table.begin(), table.end(), pair), end; it != end; ++it)
        names[(*it)[1]] = (*it)[2];
    const std::regex line(
        R"(\s*\d+:d=(\d+)\s+hl=\s*\d+\s+l=\s*(?:\d+|inf)\s+(prim|cons): (.*?) *(?:\[HEX DUMP\])?(?::([\s\S]*))?)");
    const std::regex tagged(R"((cont|appl|priv) \[\s*(\d+)\s*\])");
    const std::regex compared("int|enum|oid|utf8|printable|ia5|numeric|visible|utctime|gentime");
    for (const char* f : kFixtures) {
        SCOPED_TRACE(f);
        std::string out;
        ASSERT_EQ(0, ovtest::run("openssl asn1parse -inform DER -in " +
                                     ovtest::shq(ovtest::dataPath(std::string("asn1/") + f)),
                                 &out))
            << "the openssl command line is needed as the oracle";
        pugi::xml_document doc;
        ASSERT_TRUE(doc.load_string(xmlOf(fixture(f)).c_str()));
        pugi::xpath_node_set elements = doc.select_nodes("//*");  // in document order
        const pugi::xpath_query depthOf("count(ancestor::*)");
        size_t i = 0;
        std::istringstream lines(out);
        for (std::string l; std::getline(lines, l);) {
            std::smatch m, t;
            if (!std::regex_match(l, m, line)) continue;  // the rest of a value holding a newline
            std::string type = m[3], cons = m[2] == "cons" ? "1" : "0", value = m[4];
            if (type == "EOC") continue;
            std::string want = std::regex_match(type, t, tagged)
                                   ? names.at(t[1]) + " " + t[2].str() + "/" + cons
                               : type == "OCTET STRING" && cons == "1" ? "universal 4/1"
                                                                       : names.at(type);
            ASSERT_LT(i, elements.size());
            pugi::xml_node n = elements[i++].node();
            EXPECT_EQ(std::stoi(m[1]), static_cast<int>(depthOf.evaluate_number(n))) << want;
            std::string name = n.name(), text = n.text().get();
            if (n.attribute("tag")) {
                name += std::string(" ") + n.attribute("tag").value() + "/" +
                        n.attribute("constructed").value();
            }
            ASSERT_EQ(want, name);
            // openssl prints a positive INTEGER without its sign byte.
            while (name == "int" && text.size() > 2 && text.compare(0, 2, "00") == 0)
                text.erase(0, 2);
            // It prints string bytes raw, and names for the OIDs it knows.
            bool plain = std::all_of(value.begin(), value.end(), [&](unsigned char ch) {
                return ch >= 0x20 && ch != 0x7f && (ch < 0x80 || name == "utf8");
            });
            if (std::regex_match(name, compared) && plain && value[0] != '-' &&
                (name != "oid" || isdigit(value[0]))) {
                EXPECT_EQ(value, text);
            }
        }
        EXPECT_EQ(i, elements.size());
    }
}

// What the fixtures' goldens do not show: generic forms for malformed
// contents, odd tags, and character data that needs repair.
TEST(Asn1Xml, SingleItems) {
    const char* const cases[][2] = {
        {"050100", "<universal tag=\"5\" constructed=\"0\">AA==</universal>"},
        {"0200", "<universal tag=\"2\" constructed=\"0\"></universal>"},
        {"0602558f", "<universal tag=\"6\" constructed=\"0\">VY8=</universal>"},
        {"03020800", "<universal tag=\"3\" constructed=\"0\">CAA=</universal>"},
        {"1e03005a00", "<universal tag=\"30\" constructed=\"0\">AFoA</universal>"},
        {"1f3000", "<universal tag=\"48\" constructed=\"0\"></universal>"},
        {"2403040161", "<universal tag=\"4\" constructed=\"1\"><octets>YQ==</octets></universal>"},
        {"0c02c0af", "<utf8>\xc3\x80\xc2\xaf</utf8>"},  // overlong UTF-8 read as Latin-1
        {"1e02d83d", "<bmp>\xef\xbf\xbd</bmp>"},        // lone surrogate
        {"1c0400110000", "<universalString>\xef\xbf\xbd</universalString>"},
    };
    for (const auto& c : cases) EXPECT_EQ(c[1], xmlOf(fromHex(c[0]))) << c[0];
}

TEST(Asn1Xml, FailuresLeaveTheOutputAlone) {
    const std::pair<Bytes, const char*> cases[] = {
        {fromHex("02010500"), "Extra bytes follow the ASN.1 item"},
        {fixture("pkcs7_ber.der"), "ASN.1 indefinite length is not allowed in DER"},
        {fromHex("30820003020105"), "ASN.1 length is not in its shortest form"}};
    for (const auto& [in, error] : cases) {
        LogTree log;
        std::string xml = "keep";
        EXPECT_FALSE(render(in, xml, log, true, false));  // strict DER
        EXPECT_TRUE(xml == "keep" && log.hasError(error)) << log.text();
    }
}

// The decoded items: handed out by the renderer, or decoded one at a time.
TEST(Asn1Xml, DecodedItems) {
    LogTree log;
    std::string xml = "before|";
    StringBuffer hex;
    ExtPtrArray extra;
    ASSERT_TRUE(render(fixture("cert.der"), xml, log, true, true, &extra)) << log.text();
    EXPECT_EQ(0u, xml.find("before|<sequence><sequence>"));
    auto* item = dynamic_cast<ov_asnItem*>(extra.elementAt(0));
    ASSERT_TRUE(item && item->numChildren() == 3 && !item->child(3));
    mp_int serial;  // 20 bytes, and the one openssl prints
    ASSERT_TRUE(item->child(0)->child(1)->get_mp(serial, log));
    ASSERT_TRUE(MpMath::mpToRadixString(serial, hex, 16));
    std::string out;
    ASSERT_EQ(0, ovtest::run("openssl x509 -inform DER -noout -serial -in " +
                                 ovtest::shq(ovtest::dataPath("asn1/cert.der")),
                             &out));
    EXPECT_EQ("serial=" + std::string(hex.getString()) + "\n", out);

    // Items decoded one at a time: input, bytes taken, the INTEGER or the log line.
    const char* const cases[][3] = {{"0202ff7f 0500", "4", "-129"},
                                    {"30800201010000 ff", "7", "ASN.1 item is not an INTEGER"},
                                    {"0200", "2", "ASN.1 INTEGER is empty"}};
    for (const auto& c : cases) {
        Bytes bytes = fromHex(c[0]);
        LogTree itemLog;
        unsigned consumed = 99;
        std::unique_ptr<ov_asnItem> one(Asn1Xml::decodeAsnItem(
            bytes.data(), static_cast<unsigned>(bytes.size()), consumed, itemLog));
        ASSERT_TRUE(one) << itemLog.text();
        EXPECT_EQ(std::stoul(c[1]), consumed) << c[0];
        mp_int v;
        StringBuffer dec;
        bool isInt = one->get_mp(v, itemLog) && MpMath::mpToRadixString(v, dec, 10);
        EXPECT_TRUE(isInt ? dec.equals(c[2]) : itemLog.hasError(c[2])) << c[0] << itemLog.text();
    }
}

}  // namespace
