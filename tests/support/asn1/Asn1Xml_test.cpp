#include "support/asn1/Asn1Xml.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/asn1/Asn1TestUtil.h"
#include "support/asn1/MpMath.h"
#include "support/base/ContentCoding.h"
#include "support/base/DataBuffer.h"
#include "support/base/ExtPtrArray.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support_common/TestUtil.h"

using asn1test::fromHex;
using asn1test::toHex;
using asn1test::XNode;

namespace {

std::vector<unsigned char> fixture(const std::string& name) {
    return ovtest::readFileBytes(ovtest::dataPath("asn1/" + name));
}

DataBuffer toDb(const std::vector<unsigned char>& v) {
    DataBuffer db;
    EXPECT_TRUE(db.append(v.data(), static_cast<unsigned>(v.size())));
    return db;
}

bool render(const std::vector<unsigned char>& der, std::string& xml, LogBase& log,
            bool compact = true, bool allowBer = true) {
    StringBuffer sb;
    bool ok = Asn1Xml::derToXml(toDb(der), compact, allowBer, sb, nullptr, log);
    xml = sb.getString();
    return ok;
}

XNode parseXml(const std::string& xml) {
    XNode root;
    std::string err;
    asn1test::XmlReader r;
    EXPECT_TRUE(r.parse(xml, root, err)) << err << "\n" << xml;
    return root;
}

std::string base64Text(const std::string& b64) {
    DataBuffer db;
    EXPECT_TRUE(ContentCoding::decodeBase64ToDb(b64.data(), static_cast<unsigned>(b64.size()), db));
    return std::string(db.getData2(), db.getData2() + db.getSize());
}

const char* const kFixtures[] = {"cert.der",         "crl.der",       "crl_ext.der",
                                 "name_subject.der", "ext_aia.der",   "ext_crldp.der",
                                 "ext_san.der",      "ext_eku.der",   "ext_keyusage.der",
                                 "ext_aki.der",      "pkcs7_ber.der", "kitchen.der"};

// Golden files: <fixture>.xml beside each input, plus kitchen.pretty.xml. With
// OV_UPDATE_GOLDEN=1 in the environment the files are rewritten instead
// (review the difference before committing it).
TEST(Asn1Xml, GoldenFiles) {
    const bool update = getenv("OV_UPDATE_GOLDEN") != nullptr;
    struct Golden {
        std::string input;
        std::string golden;
        bool compact;
    };
    std::vector<Golden> goldens;
    for (const char* f : kFixtures) {
        std::string base(f);
        goldens.push_back({base, base.substr(0, base.size() - 4) + ".xml", true});
    }
    goldens.push_back({"kitchen.der", "kitchen.pretty.xml", false});
    for (const Golden& g : goldens) {
        SCOPED_TRACE(g.golden);
        LogTree log;
        std::string xml;
        ASSERT_TRUE(render(fixture(g.input), xml, log, g.compact)) << log.text();
        std::string path = ovtest::dataPath("asn1/" + g.golden);
        if (update) {
            ASSERT_TRUE(ovtest::writeFile(path, xml));
            continue;
        }
        EXPECT_EQ(ovtest::readFile(path), xml);
    }
}

// One line of `openssl asn1parse` output.
struct ParsedLine {
    int depth;
    bool constructed;
    std::string type;   // "SEQUENCE", "cont [ 6 ]", "OCTET STRING", ...
    std::string value;  // text after the type's colon, if any
    bool hexDump;
};

std::vector<ParsedLine> asn1parse(const std::string& file) {
    std::string out;
    EXPECT_EQ(0, ovtest::run("openssl asn1parse -inform DER -in " + ovtest::shq(file), &out))
        << "the openssl command line is needed as the oracle";
    std::vector<ParsedLine> lines;
    std::regex head(R"(^\s*\d+:d=(\d+)\s+hl=\s*\d+\s+l=\s*(\d+|inf)\s+(prim|cons):\s?([\s\S]*)$)");
    std::istringstream in(out);
    std::string line;
    while (std::getline(in, line)) {
        std::smatch m;
        if (!std::regex_match(line, m, head)) {
            if (!lines.empty()) lines.back().value += "\n" + line;  // a value with a newline
            continue;
        }
        ParsedLine p;
        p.depth = std::stoi(m[1]);
        p.constructed = m[3] == "cons";
        std::string rest = m[4];
        size_t colon = rest.find(':');
        p.type = rest.substr(0, colon);
        p.value = colon == std::string::npos ? "" : rest.substr(colon + 1);
        p.hexDump = p.type.find("[HEX DUMP]") != std::string::npos;
        if (p.hexDump) p.type = p.type.substr(0, p.type.find("[HEX DUMP]"));
        while (!p.type.empty() && p.type.back() == ' ') p.type.pop_back();
        if (p.type == "EOC") continue;
        lines.push_back(p);
    }
    return lines;
}

void flatten(const XNode& n, int depth, std::vector<std::pair<int, const XNode*>>& out) {
    out.push_back({depth, &n});
    for (const XNode& k : n.kids) flatten(k, depth + 1, out);
}

// The element openssl's type name corresponds to, as name + tag attribute.
std::string expectedElement(const ParsedLine& p) {
    static const std::pair<const char*, const char*> names[] = {
        {"SEQUENCE", "sequence"},
        {"SET", "set"},
        {"BOOLEAN", "bool"},
        {"INTEGER", "int"},
        {"ENUMERATED", "enum"},
        {"BIT STRING", "bits"},
        {"OCTET STRING", "octets"},
        {"NULL", "null"},
        {"OBJECT", "oid"},
        {"UTF8STRING", "utf8"},
        {"PRINTABLESTRING", "printable"},
        {"T61STRING", "t61"},
        {"IA5STRING", "ia5"},
        {"NUMERICSTRING", "numeric"},
        {"VISIBLESTRING", "visible"},
        {"UTCTIME", "utctime"},
        {"GENERALIZEDTIME", "gentime"},
        {"BMPSTRING", "bmp"},
        {"UNIVERSALSTRING", "universalString"},
        {"GENERALSTRING", "universal 27"},
    };
    std::smatch m;
    static const std::regex tagged(R"(^(cont|appl|priv) \[\s*(\d+)\s*\]$)");
    if (std::regex_match(p.type, m, tagged)) {
        std::string cls = m[1] == "cont"   ? "contextSpecific"
                          : m[1] == "appl" ? "application"
                                           : "private";
        return cls + " " + std::string(m[2]);
    }
    if (p.constructed && p.type == "OCTET STRING") return "universal 4";
    for (const auto& n : names)
        if (p.type == n.first) return n.second;
    return "unknown " + p.type;
}

bool printableAscii(const std::string& s) {
    for (unsigned char c : s)
        if (c < 0x20 || c > 0x7e) return false;
    return true;
}

TEST(Asn1Xml, AgreesWithOpensslAsn1parse) {
    for (const char* f : kFixtures) {
        SCOPED_TRACE(f);
        std::vector<ParsedLine> ref = asn1parse(ovtest::dataPath(std::string("asn1/") + f));
        LogTree log;
        std::string xml;
        ASSERT_TRUE(render(fixture(f), xml, log)) << log.text();
        XNode root = parseXml(xml);
        std::vector<std::pair<int, const XNode*>> mine;
        flatten(root, 0, mine);
        for (size_t i = 0; i < ref.size() && i < mine.size(); ++i) {
            const ParsedLine& p = ref[i];
            const XNode& n = *mine[i].second;
            SCOPED_TRACE("item " + std::to_string(i) + " " + p.type);
            ASSERT_EQ(p.depth, mine[i].first);
            std::string got = n.name;
            if (!n.attr("tag").empty()) got += " " + n.attr("tag");
            ASSERT_EQ(expectedElement(p), got);
            if (!n.attr("constructed").empty()) {
                EXPECT_EQ(p.constructed ? "1" : "0", n.attr("constructed"));
            }
            // Values, where openssl prints them in a comparable form.
            if (n.name == "int" && !p.value.empty() && p.value[0] != '-') {
                std::string hex = n.text;
                while (hex.size() > 2 && hex.compare(0, 2, "00") == 0) hex.erase(0, 2);
                EXPECT_EQ(p.value, hex);
            } else if (n.name == "bool") {
                EXPECT_EQ(p.value == "0" ? "false" : "true", n.text);
            } else if (n.name == "oid" && !p.value.empty() && isdigit(p.value[0])) {
                EXPECT_EQ(p.value, n.text);
            } else if (n.name == "octets") {
                std::string bytes = base64Text(n.text);
                if (p.hexDump) {
                    std::string hex = toHex(std::vector<unsigned char>(bytes.begin(), bytes.end()));
                    for (char& ch : hex) ch = static_cast<char>(toupper(ch));
                    EXPECT_EQ(p.value, hex);
                } else {
                    EXPECT_EQ(p.value, bytes);
                }
            } else if (n.name == "printable" || n.name == "ia5" || n.name == "utf8" ||
                       n.name == "numeric" || n.name == "visible" || n.name == "utctime" ||
                       n.name == "gentime") {
                if (printableAscii(p.value) ||
                    (n.name == "utf8" && p.value.find('\n') == std::string::npos)) {
                    EXPECT_EQ(p.value, n.text);
                }
            }
        }
        ASSERT_EQ(ref.size(), mine.size());
    }
}

// The exact texts that certificate code searches the rendering for.
TEST(Asn1Xml, RendersWhatCertificateQueriesSearchFor) {
    struct Case {
        const char* fixture;
        std::vector<std::string> contains;
    };
    const Case cases[] = {
        {"ext_eku.der", {"<oid>1.3.6.1.5.5.7.3.1</oid>", "<oid>1.3.6.1.5.5.7.3.2</oid>"}},
        {"ext_aia.der",
         {"<oid>1.3.6.1.5.5.7.48.1</oid>", "<contextSpecific tag=\"6\" constructed=\"0\">"}},
        {"ext_crldp.der", {"<contextSpecific tag=\"6\" constructed=\"0\">", "</contextSpecific>"}},
        {"ext_san.der", {"<contextSpecific tag=\"1\" constructed=\"0\">"}},
        {"name_subject.der",
         {"<set><sequence><oid>2.5.4.3</oid><bmp>Zo\xc3\xab \xc3\x9cnicode \xe2\x82\xac</bmp>"
          "</sequence></set>",
          "<bmp>Orvane &lt;Test&gt; &amp; Co</bmp>", "<oid>2.5.4.6</oid><printable>DE</printable>",
          "<ia5>alice@example.com</ia5>"}},
        {"crl_ext.der", {"<oid>2.5.29.20</oid><octets>AgEF</octets>"}},
        {"ext_keyusage.der", {"<bits unused=\"5\">A0</bits>"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.fixture);
        LogTree log;
        std::string xml;
        ASSERT_TRUE(render(fixture(c.fixture), xml, log)) << log.text();
        for (const std::string& s : c.contains) EXPECT_NE(std::string::npos, xml.find(s)) << s;
    }
}

TEST(Asn1Xml, KeyUsageTextStartsWithItsBits) {
    LogTree log;
    std::string xml;
    ASSERT_TRUE(render(fixture("ext_keyusage.der"), xml, log));
    ASSERT_EQ(0u, xml.find("<bits"));
    size_t gt = xml.find('>');
    ASSERT_NE(std::string::npos, gt);
    EXPECT_EQ("A0", xml.substr(gt + 1, 2));  // digitalSignature | keyEncipherment
}

TEST(Asn1Xml, AuthorityKeyIdReadsAfterTheSecondTag) {
    std::vector<unsigned char> aki = fixture("ext_aki.der");
    ASSERT_EQ(24u, aki.size());  // 30 16 80 14 <20 bytes>
    LogTree log;
    std::string xml;
    ASSERT_TRUE(render(aki, xml, log));
    xml = xml.substr(0, xml.find("</contextSpecific>"));
    size_t first = xml.find('>');
    size_t second = xml.find('>', first + 1);
    ASSERT_NE(std::string::npos, second);
    std::string keyId = base64Text(xml.substr(second + 1));
    EXPECT_EQ(toHex(aki).substr(8), toHex(std::vector<unsigned char>(keyId.begin(), keyId.end())));
}

TEST(Asn1Xml, RevocationPointersWalkAsExpected) {
    LogTree log;
    std::string xml;
    // CRL distribution points: sequence/sequence/[0]/[0]/[6]...
    ASSERT_TRUE(render(fixture("ext_crldp.der"), xml, log));
    XNode dp = parseXml(xml);
    ASSERT_EQ("sequence", dp.name);
    const XNode* n = &dp;
    const char* path[] = {"sequence", "contextSpecific", "contextSpecific"};
    for (const char* step : path) {
        ASSERT_FALSE(n->kids.empty());
        n = &n->kids[0];
        ASSERT_EQ(step, n->name);
    }
    ASSERT_EQ(2u, n->kids.size());
    EXPECT_EQ("6", n->kids[0].attr("tag"));
    EXPECT_EQ("ldap://127.0.0.1/cn=ca?certificateRevocationList", base64Text(n->kids[0].text));
    EXPECT_EQ("http://127.0.0.1/ca.crl", base64Text(n->kids[1].text));
    ASSERT_EQ(2u, dp.kids.size());  // a second distribution point follows

    // Authority information access: the OCSP method's sibling location.
    ASSERT_TRUE(render(fixture("ext_aia.der"), xml, log));
    XNode aia = parseXml(xml);
    std::string ocsp;
    for (const XNode& ad : aia.kids) {
        ASSERT_EQ("sequence", ad.name);
        ASSERT_EQ(2u, ad.kids.size());
        if (ad.kids[0].name == "oid" && ad.kids[0].text == "1.3.6.1.5.5.7.48.1")
            ocsp = base64Text(ad.kids[1].text);
    }
    EXPECT_EQ("http://127.0.0.1:8888/ocsp", ocsp);

    // Subject alternative names keep their bytes exactly, '&' included.
    ASSERT_TRUE(render(fixture("ext_san.der"), xml, log));
    XNode san = parseXml(xml);
    ASSERT_EQ(3u, san.kids.size());
    EXPECT_EQ("alice@example.com", base64Text(san.kids[0].text));
    EXPECT_EQ("www.example.com", base64Text(san.kids[1].text));
    EXPECT_EQ("https://example.com/a?b=c&d=e", base64Text(san.kids[2].text));
}

TEST(Asn1Xml, CrlNumberComesBackThroughTheItemDecoder) {
    LogTree log;
    std::string xml;
    ASSERT_TRUE(render(fixture("crl_ext.der"), xml, log));
    XNode ext = parseXml(xml);
    std::vector<std::pair<int, const XNode*>> all;
    flatten(ext, 0, all);
    std::string value;
    for (const auto& e : all) {
        for (size_t i = 0; i + 1 < e.second->kids.size(); ++i)
            if (e.second->kids[i].name == "oid" && e.second->kids[i].text == "2.5.29.20")
                value = e.second->kids[i + 1].text;
    }
    std::string bytes = base64Text(value);
    unsigned consumed = 0;
    ov_asnItem* item = Asn1Xml::decodeAsnItem(reinterpret_cast<const unsigned char*>(bytes.data()),
                                              static_cast<unsigned>(bytes.size()), consumed, log);
    ASSERT_TRUE(item) << log.text();
    EXPECT_EQ(bytes.size(), consumed);
    mp_int n;
    ASSERT_TRUE(item->get_mp(n, log));
    EXPECT_EQ(5u, MpMath::mp_get_int(n));
    delete item;
}

TEST(Asn1Xml, SingleItems) {
    struct Case {
        const char* name;
        const char* hex;
        const char* xml;
    };
    const Case cases[] = {
        {"null", "0500", "<null/>"},
        {"null with content", "050100", "<universal tag=\"5\" constructed=\"0\">AA==</universal>"},
        {"true", "0101ff", "<bool>true</bool>"},
        {"BER true", "010101", "<bool>true</bool>"},
        {"false", "010100", "<bool>false</bool>"},
        {"long boolean", "01020000", "<universal tag=\"1\" constructed=\"0\">AAA=</universal>"},
        {"integer keeps its sign byte", "02020080", "<int>0080</int>"},
        {"negative integer", "0201ff", "<int>FF</int>"},
        {"empty integer", "0200", "<universal tag=\"2\" constructed=\"0\"></universal>"},
        {"enumerated", "0a0103", "<enum>03</enum>"},
        {"oid", "0603551d0f", "<oid>2.5.29.15</oid>"},
        {"bad oid", "0602558f", "<universal tag=\"6\" constructed=\"0\">VY8=</universal>"},
        {"empty bits", "030100", "<bits unused=\"0\"></bits>"},
        {"bits without count", "0300", "<universal tag=\"3\" constructed=\"0\"></universal>"},
        {"bits with count 8", "03020800",
         "<universal tag=\"3\" constructed=\"0\">CAA=</universal>"},
        {"octets", "0403616263", "<octets>YWJj</octets>"},
        {"empty sequence", "3000", "<sequence></sequence>"},
        {"empty explicit", "a000",
         "<contextSpecific tag=\"0\" constructed=\"1\"></contextSpecific>"},
        {"primitive sequence tag", "1000", "<universal tag=\"16\" constructed=\"0\"></universal>"},
        {"high universal tag", "1f3000", "<universal tag=\"48\" constructed=\"0\"></universal>"},
        {"application", "4101ff", "<application tag=\"1\" constructed=\"0\">/w==</application>"},
        {"private constructed", "e203020107",
         "<private tag=\"2\" constructed=\"1\"><int>07</int></private>"},
        {"constructed octets", "2403040161",
         "<universal tag=\"4\" constructed=\"1\"><octets>YQ==</octets></universal>"},
        {"utf8", "0c03e282ac", "<utf8>\xe2\x82\xac</utf8>"},
        {"utf8 escapes", "0c053c263e2227", "<utf8>&lt;&amp;&gt;\"'</utf8>"},
        {"utf8 invalid read as Latin-1", "0c02c328", "<utf8>\xc3\x83(</utf8>"},
        {"utf8 overlong read as Latin-1", "0c02c0af", "<utf8>\xc3\x80\xc2\xaf</utf8>"},
        {"CR kept as a reference", "0c030d0a09", "<utf8>&#13;\n\t</utf8>"},
        {"NUL replaced", "0c0100", "<utf8>\xef\xbf\xbd</utf8>"},
        {"printable Latin-1", "13024dfc", "<printable>M\xc3\xbc</printable>"},
        {"t61 is Latin-1", "1402c3a9", "<t61>\xc3\x83\xc2\xa9</t61>"},
        {"bmp pair", "1e04d83dde00", "<bmp>\xf0\x9f\x98\x80</bmp>"},
        {"bmp lone surrogate", "1e02d83d", "<bmp>\xef\xbf\xbd</bmp>"},
        {"bmp FFFE", "1e02fffe", "<bmp>\xef\xbf\xbd</bmp>"},
        {"bmp odd length", "1e03005a00",
         "<universal tag=\"30\" constructed=\"0\">AFoA</universal>"},
        {"universal string", "1c080000002600010000",
         "<universalString>&amp;\xf0\x90\x80\x80</universalString>"},
        {"universal string past Unicode", "1c0400110000",
         "<universalString>\xef\xbf\xbd</universalString>"},
        {"utctime", "170d3235303130323033303430355a", "<utctime>250102030405Z</utctime>"},
        {"general string", "1b0141", "<universal tag=\"27\" constructed=\"0\">QQ==</universal>"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogTree log;
        std::string xml;
        ASSERT_TRUE(render(fromHex(c.hex), xml, log)) << log.text();
        EXPECT_EQ(c.xml, xml);
        parseXml(xml);
    }
}

TEST(Asn1Xml, PrettyAndCompactHoldTheSameTree) {
    LogTree log;
    std::string pretty;
    ASSERT_TRUE(render(fromHex("3008020105a003020106"), pretty, log, false));
    EXPECT_EQ(
        "<sequence>\n  <int>05</int>\n  <contextSpecific tag=\"0\" constructed=\"1\">\n"
        "    <int>06</int>\n  </contextSpecific>\n</sequence>\n",
        pretty);
    for (const char* f : kFixtures) {
        SCOPED_TRACE(f);
        std::string a, b;
        ASSERT_TRUE(render(fixture(f), a, log, true));
        ASSERT_TRUE(render(fixture(f), b, log, false));
        std::vector<std::pair<int, const XNode*>> fa, fb;
        XNode ta = parseXml(a), tb = parseXml(b);
        flatten(ta, 0, fa);
        flatten(tb, 0, fb);
        ASSERT_EQ(fa.size(), fb.size());
        for (size_t i = 0; i < fa.size(); ++i) {
            EXPECT_EQ(fa[i].first, fb[i].first);
            EXPECT_EQ(fa[i].second->name, fb[i].second->name);
            EXPECT_EQ(fa[i].second->text, fb[i].second->text);
            EXPECT_EQ(fa[i].second->attrs, fb[i].second->attrs);
        }
    }
}

TEST(Asn1Xml, FailuresLeaveTheOutputAlone) {
    struct Case {
        const char* name;
        std::vector<unsigned char> der;
        bool allowBer;
        const char* error;
    };
    const Case cases[] = {
        {"empty", {}, true, "ASN.1 input is empty"},
        {"trailing bytes", fromHex("02010500"), true, "Extra bytes follow the ASN.1 item"},
        {"BER in strict mode", fixture("pkcs7_ber.der"), false,
         "ASN.1 indefinite length is not allowed in DER"},
        {"padded length in strict mode", fromHex("3081030201 05"), false,
         "ASN.1 length is not in its shortest form"},
        {"bad child", fromHex("30030202 01"), true, "ASN.1 length exceeds input"},
        {"nested past the cap", asn1test::nestedDefinite(der::kMaxDepth + 1), true,
         "ASN.1 nesting is too deep"},
        {"nested far past the cap", asn1test::nestedIndefinite(10000), true,
         "ASN.1 nesting is too deep"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogTree log;
        StringBuffer sb("keep");
        ExtPtrArray extra;
        EXPECT_FALSE(Asn1Xml::derToXml(toDb(c.der), true, c.allowBer, sb, &extra, log));
        EXPECT_STREQ("keep", sb.getString());
        EXPECT_EQ(0, extra.getSize());
        EXPECT_TRUE(log.hasError(c.error)) << log.text();
    }
    // Just inside the cap renders.
    LogTree log;
    std::string xml;
    EXPECT_TRUE(render(asn1test::nestedDefinite(der::kMaxDepth), xml, log));
}

TEST(Asn1Xml, AppendsAndHandsOutTheDecodedItem) {
    std::vector<unsigned char> cert = fixture("cert.der");
    LogTree log;
    StringBuffer sb("before|");
    ExtPtrArray extra;
    ASSERT_TRUE(Asn1Xml::derToXml(toDb(cert), true, true, sb, &extra, log));
    EXPECT_EQ(0, std::string(sb.getString()).find("before|<sequence><sequence>"));
    ASSERT_EQ(1, extra.getSize());
    auto* item = dynamic_cast<ov_asnItem*>(extra.elementAt(0));
    ASSERT_TRUE(item);
    EXPECT_EQ(16u, item->tagNumber());
    EXPECT_EQ(3, item->numChildren());
    EXPECT_EQ(nullptr, item->child(3));
    // The serial number, as an mp_int, is the one openssl prints.
    mp_int serial;
    ASSERT_TRUE(item->child(0)->child(1)->get_mp(serial, log));
    StringBuffer hex;
    ASSERT_TRUE(MpMath::mpToRadixString(serial, hex, 16));
    std::string out;
    ASSERT_EQ(0, ovtest::run("openssl x509 -inform DER -noout -serial -in " +
                                 ovtest::shq(ovtest::dataPath("asn1/cert.der")),
                             &out));
    EXPECT_EQ("serial=" + std::string(hex.getString()) + "\n", out);
}

TEST(Asn1Xml, DecodeAsnItem) {
    struct Case {
        const char* name;
        const char* hex;
        unsigned consumed;  // 0: must fail
        int children;
        const char* mp;     // decimal INTEGER value, or null when get_mp must fail
        const char* error;  // expected log line on failure
    };
    const Case cases[] = {
        {"integer with trailing bytes", "0202ff7f 0500", 4, 0, "-129", nullptr},
        {"positive", "020500ffffffff", 7, 0, "4294967295", nullptr},
        {"sequence", "3006020101020102", 8, 2, nullptr, "ASN.1 item is not an INTEGER"},
        {"ber sequence", "30800201010000 ff", 7, 1, nullptr, "ASN.1 item is not an INTEGER"},
        {"empty integer", "0200", 2, 0, nullptr, "ASN.1 INTEGER is empty"},
        {"enumerated is no integer", "0a0101", 3, 0, nullptr, "ASN.1 item is not an INTEGER"},
        {"truncated", "020501", 0, 0, nullptr, "ASN.1 length exceeds input"},
        {"bad child", "3003020501", 0, 0, nullptr, "ASN.1 length exceeds input"},
        {"empty", "", 0, 0, nullptr, "ASN.1 input is empty"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<unsigned char> in = fromHex(c.hex);
        LogTree log;
        unsigned consumed = 99;
        ov_asnItem* item = Asn1Xml::decodeAsnItem(in.empty() ? nullptr : in.data(),
                                                  static_cast<unsigned>(in.size()), consumed, log);
        EXPECT_EQ(c.consumed, consumed);
        if (!c.consumed) {
            EXPECT_EQ(nullptr, item);
            EXPECT_TRUE(log.hasError(c.error)) << log.text();
            continue;
        }
        ASSERT_TRUE(item) << log.text();
        EXPECT_EQ(c.children, item->numChildren());
        mp_int v;
        if (c.mp) {
            ASSERT_TRUE(item->get_mp(v, log));
            StringBuffer sb;
            ASSERT_TRUE(MpMath::mpToRadixString(v, sb, 10));
            EXPECT_STREQ(c.mp, sb.getString());
        } else {
            EXPECT_FALSE(item->get_mp(v, log));
            EXPECT_TRUE(log.hasError(c.error)) << log.text();
        }
        OrvaneObject::deleteObject(item);  // through the virtual destructor
    }
}

// Broken certificates: every failure is logged, every success is valid XML.
TEST(Asn1Xml, MalformedCertificatesFailCleanly) {
    std::vector<unsigned char> cert = fixture("cert.der");
    std::string xml;
    for (size_t n = 0; n < cert.size(); ++n) {
        LogTree log;
        ASSERT_FALSE(render(std::vector<unsigned char>(cert.begin(), cert.begin() + n), xml, log));
        ASSERT_TRUE(log.hasErrors());
    }
    std::vector<asn1test::HeaderPos> headers;
    asn1test::collectHeaders(cert, DerInput(cert.data(), cert.size()), headers);
    size_t inflated = 0, inflatedFailed = 0;
    for (const auto& h : headers) {
        SCOPED_TRACE(h.tag);
        for (unsigned char mask : {0x01, 0x20, 0x80, 0xff, 0x1f}) {
            std::vector<unsigned char> bad = cert;
            bad[h.tag] ^= mask;
            LogTree log;
            if (render(bad, xml, log)) {
                XNode root;
                std::string err;
                asn1test::XmlReader r;
                ASSERT_TRUE(r.parse(xml, root, err)) << err;
            } else {
                ASSERT_TRUE(log.hasErrors());
            }
        }
        std::vector<unsigned char> bad = cert;
        unsigned char lb = bad[h.len];
        size_t last = lb < 0x80 ? h.len : h.len + (lb & 0x7f);
        if (bad[last] == 0xff || bad[last] == 0x7f) continue;
        ++bad[last];
        LogTree log;
        ++inflated;
        if (render(bad, xml, log)) {
            XNode root;
            std::string err;
            asn1test::XmlReader r;
            ASSERT_TRUE(r.parse(xml, root, err)) << err;
        } else {
            ASSERT_TRUE(log.hasErrors());
            ++inflatedFailed;
        }
    }
    EXPECT_GT(inflatedFailed * 10, inflated * 9);
}

}  // namespace
