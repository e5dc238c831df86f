// X509NameXml: DN text from the ASN.1 XML rendering of a name, for callers that
// hold a name only as XML (the CRL reader walks its issuer that way).
#pragma once

class ClsXml;
class LogBase;
class XString;

class X509NameXml {
  public:
    // Appends the text of the RDN whose <set> element the cursor stands on, in
    // the form X509Name gives the same RDN from DER (same tags, separators,
    // quoting and escaping), preceded by the RDN separator when dn is not
    // empty. The cursor is back on the <set> when the call returns. False, with
    // an error line and dn unchanged, when the node is not an RDN.
    static bool appendRdn(ClsXml& rdn, bool withTags, int style, XString& dn, LogBase& log);
};
