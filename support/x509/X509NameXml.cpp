#include "support/x509/X509NameXml.h"

#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"
#include "support/x509/X509Name.h"
#include "support/xml/ClsXml.h"

namespace {

bool fail(LogBase& log, const char* msg) {
    log.logError(msg);
    return false;
}

// Reads the attribute at child i of the <set>:
//   <sequence><oid>2.5.4.3</oid><utf8>Example</utf8></sequence>
// The cursor always returns to the <set>.
bool readAttribute(ClsXml& set, int i, StringBuffer& oid, StringBuffer& value) {
    if (!set.getChild2(i)) return false;
    bool ok = set.tagEquals("sequence") && set.get_NumChildren() == 2 &&
              set.getChildContentUtf8("oid", oid, false);
    if (ok) {
        ok = set.getChild2(1);
        if (ok) {
            set.getContentSb(value);
            set.GetParent2();
        }
    }
    set.GetParent2();
    return ok;
}

}  // namespace

bool X509NameXml::appendRdn(ClsXml& rdn, bool withTags, int style, XString& dn, LogBase& log) {
    if (style != X509Name::kStyleRfc4514) style = X509Name::kStyleEveryday;
    if (!rdn.tagEquals("set")) return fail(log, "Name XML element is not an RDN set.");
    const int n = rdn.get_NumChildren();
    if (n <= 0) return fail(log, "Name XML RDN holds no attribute.");

    StringBuffer text, oid, value, tag;
    for (int i = 0; i < n; ++i) {
        oid.clear();
        value.clear();
        if (!readAttribute(rdn, i, oid, value))
            return fail(log, "Name XML attribute is malformed.");
        if (i) text.append(X509Name::multiValueSeparator(style));
        tag.clear();
        if (withTags) {
            unsigned char buf[64];
            size_t len = 0;
            const X509AttrType* t = nullptr;
            if (der::textToOid(oid.getString(), buf, sizeof buf, &len))
                t = X509Name::typeByOid(DerInput(buf, len));
            tag.append(t ? t->tag : oid.getString());
        }
        X509Name::appendAttribute(tag.getString(), value.getString(), value.getSize(), false,
                                  withTags, style, text);
    }
    if (!dn.isEmpty()) dn.appendUtf8(X509Name::rdnSeparator(style));
    return dn.appendSbUtf8(text);
}
