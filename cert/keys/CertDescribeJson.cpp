// The certificate's compact JSON description, spliced by callers into larger
// documents: its exact text (spacing, comma placement, the quoted key size, no
// escaping) is what those callers parse, so it never changes shape.
#include "cert/CertCore.h"
#include "cert/LockedQuery.h"
#include "support/base/ovstr.h"
#include "support/time/OrvaneSysTime.h"
#include "support/time/_ovDateParser.h"

bool CertCore::appendDescriptiveJson(StringBuffer& out, LogBase& log) {
    LogContextExitor ctx(log, "cert_appendDescriptiveJson");
    using certquery::locked;
    // Each read takes the lock on its own; formatting and appending run unlocked.

    XString text;
    if (locked(*this, false, [&](OrvaneX509* x) { return x->get_SerialNumber(text, log); }))
        out.append3("\"serial\":\"", text.getUtf8(), "\",");

    // Milliseconds when present, a leap second rolled forward, "Z" (see the
    // Dates notes); a record that could not be read formats as its initial value.
    OrvaneSysTime t;
    StringBuffer date;
    locked(*this, false, [&](OrvaneX509* x) { return x->get_Valid_To_or_From_UTC(true, t, log); });
    _ovDateParser::SysTimeToRfc3339(t, true, false, date, true);
    out.append3("\"validFrom\":\"", date.getString(), "\",");
    locked(*this, false, [&](OrvaneX509* x) { return x->get_Valid_To_or_From_UTC(false, t, log); });
    date.clear();
    _ovDateParser::SysTimeToRfc3339(t, true, false, date, true);
    out.append3("\"validTo\":\"", date.getString(), "\",");

    const bool expired = locked(*this, false, [&](OrvaneX509* x) { return x->isCertExpired(log); });
    out.append3("\"expired\":", expired ? "true" : "false", ",");

    out.append("\"subject\": {");
    locked(*this, false, [&](OrvaneX509* x) { return x->getDnJson(true, out, log, 0); });
    out.append("}, \"issuer\": {");
    locked(*this, false, [&](OrvaneX509* x) { return x->getDnJson(false, out, log, 0); });
    out.append("}");

    // From here each member starts with its comma, so the text never ends in one.
    text.clear();
    if (locked(*this, false, [&](OrvaneX509* x) { return x->getRfc822Name(text, log); }))
        out.append3(",\"san\":\"", text.getUtf8(), "\"");

    _ovPublicKey key;
    if (getCertPublicKey(key, log)) {
        out.append3(",\"keyType\":\"", key.keyTypeStr(), "\"");
        char bits[12];
        ov_uint32_to_str(key.getBitLength(), bits);
        // Quoted: callers read the size as a string.
        out.append3(",\"keySize\":\"", bits, "\"");
    }
    return true;
}
