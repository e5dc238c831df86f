// The Extension reader every Extensions list goes through, readers of the
// common extension values (X509ExtRead) and their text and XML forms
// (X509ExtText). The value readers take the extension value's DER: the
// contents of extnValue.
#pragma once

#include "support/asn1/DerReader.h"

class StringBuffer;

// One Extension of an Extensions list, as certificates, CRLs, CRL entries and
// OCSP messages carry them.
struct X509Extension {
    DerInput oid;  // extnID content octets
    bool critical = false;
    DerInput value;  // extnValue contents: the extension value's DER
};

class X509ExtRead {
  public:
    // Reads the next Extension from a cursor over the contents of an
    // Extensions SEQUENCE; false, the cursor left where it was, when malformed.
    static bool extension(DerParser& list, X509Extension* out);
    // AuthorityKeyIdentifier's keyIdentifier; false when absent or malformed.
    static bool akiKeyId(DerInput value, DerInput* keyId);
    // SubjectKeyIdentifier's bytes.
    static bool skiKeyId(DerInput value, DerInput* keyId);
    // BasicConstraints; *pathLen -1 when absent.
    static bool basicConstraints(DerInput value, bool* isCa, int* pathLen);
    // KeyUsage as a 9-bit mask, 0x100 digitalSignature ... 0x001 decipherOnly.
    static bool keyUsageMask(DerInput value, unsigned* mask);
    // Contents of ExtKeyUsageSyntax (SEQUENCE OF KeyPurposeId).
    static bool ekuList(DerInput value, DerInput* list);
    // URIs of the AccessDescriptions whose method is id-ad-ocsp; returns the
    // count (views filled up to max), -1 when malformed.
    static int ocspUris(DerInput value, DerInput* out, int max);
    // URIs in the fullName of every DistributionPoint, in order; -1 when malformed.
    static int crlUris(DerInput value, DerInput* out, int max);
    // The first rfc822Name of a GeneralNames value.
    static bool firstRfc822(DerInput value, DerInput* name);
};

class X509ExtText {
  public:
    // Appends one GeneralName as "DNS:..", "email:..", "URI:..", "IP:..",
    // "DirName:<DN text>", "RID:<oid>", "othername:<oid>", "X400Name",
    // "EdiPartyName". False, appending nothing, for a malformed name.
    static bool appendGeneralName(const DerElement& gn, StringBuffer& out);
    // Appends the one-line text form of the extension with OID content octets
    // extOid; false when the value is malformed or has no text form. Forms:
    //   subject/authority key id    upper-case hex of the key id
    //   key usage                   names, e.g. "digitalSignature,keyEncipherment"
    //   extended key usage          dotted OIDs in certificate order, "," between
    //   basic constraints           "CA:TRUE" / "CA:FALSE", then ", pathlen:N"
    //   subject/issuer alt names    GeneralNames joined by ", "
    //   CRL distribution points     every fullName GeneralName, joined by ", "
    //   authority info access       "OCSP - URI:..", "CA Issuers - URI:..", ", "
    //   certificate policies        policy OIDs joined by ","
    //   any value that is a string  the string as UTF-8
    static bool appendText(DerInput extOid, DerInput value, StringBuffer& out);
    // Appends <subjectAltName>...</subjectAltName> for a GeneralNames value.
    static bool appendSanXml(DerInput value, StringBuffer& out);
    // Appends text with &, <, >, " and ' escaped for XML.
    static void appendXmlEscaped(const char* s, unsigned n, StringBuffer& out);
    // Appends an iPAddress octet string as dotted IPv4 or RFC 5952 IPv6; any
    // other length as hex.
    static void appendIp(DerInput ip, StringBuffer& out);
};
