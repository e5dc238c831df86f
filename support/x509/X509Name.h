// X509Name: text, JSON and attribute lookup for X.500 distinguished names,
// read straight from their DER.
#pragma once

#include "support/asn1/DerReader.h"
#include "support/asn1/OidTable.h"

class StringBuffer;

// One known attribute type: its OID (dotted text and content octets, named by
// its RFC 4519 / PKCS#9 name), the tag printed before its values, and the
// other names a caller may ask for it by.
struct X509AttrType : KnownOid {
    const char* tag;       // printed in DN text and used as the JSON key
    const char* longName;  // the OID's name
    const char* alias;     // another accepted short name, or null

    constexpr X509AttrType(const char* dotted, const char* shortName, const char* longNm,
                           const char* otherShortName = nullptr)
        : KnownOid(dotted, longNm), tag(shortName), longName(longNm), alias(otherShortName) {}
};

class X509Name {
  public:
    // Styles of DN text (see OrvaneX509::getDN).
    static constexpr int kStyleEveryday = 0;
    static constexpr int kStyleRfc4514 = 1;
    // Names with more RDNs or attributes than these are refused rather than
    // walked (real names have fewer than 20); the caps keep the JSON form, which
    // groups repeated types, from turning quadratic on hostile input.
    static constexpr int kMaxRdns = 128;
    static constexpr int kMaxAttributes = 256;

    // The whole attribute table (the names get_SubjectValue accepts).
    static const X509AttrType* allTypes(size_t* count);
    // The attribute type with these OID content octets, or null.
    static const X509AttrType* typeByOid(DerInput oid);
    // The attribute type named name (tag, long name or alias, ASCII case
    // ignored), or null.
    static const X509AttrType* typeByName(const char* name);

    // Appends the value of a directory string (tag is the element's tag byte) as
    // UTF-8: the 8-bit ASCII types and UTF8String as UTF-8 when they are valid
    // UTF-8 and as Latin-1 otherwise; TeletexString and the other 8-bit types as
    // Latin-1; BMPString as UTF-16BE; UniversalString as UCS-4. Control
    // characters other than tab and line feed, lone surrogates and U+FFFE/FFFF
    // become U+FFFD, exactly as the ASN.1 XML rendering writes them. False,
    // appending nothing, for other types and for BMP/Universal strings of a
    // length that does not fit.
    static bool appendStringValue(unsigned tag, DerInput contents, StringBuffer& out);
    // Appends the value as text: decoded when it is a string, otherwise "#" and
    // the upper-case hex of the whole element.
    static void appendValueText(const DerElement& value, StringBuffer& out);

    // Appends the DN text of a Name element (tag and length included). RDNs are
    // written last-encoded first unless encodingOrder is set. False on a
    // malformed name (out may then hold part of the text).
    static bool appendDnText(DerInput name, bool withTags, int style, bool encodingOrder,
                             StringBuffer& out);
    // Appends JSON members (no braces) for a Name element; see getDnJson.
    static bool appendDnJson(DerInput name, StringBuffer& out);
    // Appends the first value of the attribute with OID content octets oid.
    // False when absent or the name is malformed.
    static bool findValue(DerInput name, DerInput oid, StringBuffer& out);

    // Building blocks shared with the XML form of a name (appendToDN).
    // The separator placed between RDNs and between the values of one RDN.
    static const char* rdnSeparator(int style);
    static const char* multiValueSeparator(int style);
    // Appends "tag=" (when withTags) and the value, quoted or escaped as style
    // says. tag is the short name, or the dotted OID for an unknown type.
    static void appendAttribute(const char* tag, const char* value, unsigned valueLen,
                                bool isHexDump, bool withTags, int style, StringBuffer& out);
    // Appends text as the body of a JSON string (no quotes added).
    static void appendJsonEscaped(const char* s, unsigned n, StringBuffer& out);
    // Appends text as a whole JSON string, quotes included.
    static void appendJsonString(const StringBuffer& text, StringBuffer& out);
};
