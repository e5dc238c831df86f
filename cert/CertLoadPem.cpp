// Readers of one certificate in text form: PEM CERTIFICATE, PEM PKCS7, base64.
#include "cert/CertCore.h"
#include "cert/LoadText.h"
#include "support/base/ContentCoding.h"

namespace {

const char kBeginCert[] = "-----BEGIN CERTIFICATE-----";
const char kBeginPkcs7[] = "-----BEGIN PKCS7-----";
const char kEndPrefix[] = "-----END";

inline bool isPemSpace(char c) {
    return c == '\t' || c == '\n' || c == '\r' || c == ' ';
}

// Cuts the base64 body that follows the begin marker at `marker` and decodes it
// into out. `end` is the end of the caller's text (its length), `textEnd` where
// searches stop (its first zero byte, or end). Without an
// end marker the body runs for length - markerLen bytes from the skip
// position: the count is not reduced by the whitespace skipped, and the length
// is the caller's as given (clamped here so we never read past the text).
bool decodePemBody(const char* end, const char* textEnd, const char* marker, unsigned markerLen,
                   unsigned length, DataBuffer& out) {
    const char* p = marker + markerLen;
    while (p < end && isPemSpace(*p)) ++p;
    const char* e = loadtext::find(p, textEnd, kEndPrefix);
    unsigned bodyLen;
    if (e) {
        bodyLen = static_cast<unsigned>(e - p);
    } else {
        unsigned want = length > markerLen ? length - markerLen : 0;
        unsigned avail = static_cast<unsigned>(end - p);
        bodyLen = want < avail ? want : avail;  // never read past the caller's text
    }
    return ContentCoding::decodeBase64ToDb(p, bodyLen, out);
}

}  // namespace

CertCore* CertCore::createFromPemCertificate(const char* text, unsigned length, SystemCerts* store,
                                             LogBase& log) {
    LogContextExitor ctx(log, "createFromPemCertificate");
    const char* end = text ? text + length : nullptr;
    const char* textEnd = text ? loadtext::textEnd(text, length) : nullptr;
    const char* m = loadtext::find(text, textEnd, kBeginCert);
    if (!m) {
        log.logError("Did not find -----BEGIN CERTIFICATE-----");
        return nullptr;
    }
    // The length counts from text; the body rule uses it as it is.
    DataBuffer der;
    if (!decodePemBody(end, textEnd, m, sizeof kBeginCert - 1, length, der)) {
        log.logError("Decode from base64 failed.");
        return nullptr;
    }
    if (der.containsSubstring(kBeginCert, 0)) {
        // The body was itself a base64-encoded PEM.
        StringBuffer inner;
        inner.append(der);
        return createFromPemCertificate(inner.getString(), inner.getSize(), store, log);
    }
    return createFromDer2(der.getData2(), der.getSize(), nullptr, store, log);
}

CertCore* CertCore::createFromPemPkcs7(const char* text, unsigned length, SystemCerts* store,
                                       LogBase& log) {
    const unsigned markerLen = sizeof kBeginPkcs7 - 1;
    if (!text || length < markerLen || memcmp(text, kBeginPkcs7, markerLen) != 0) return nullptr;
    DataBuffer der;
    if (!decodePemBody(text + length, loadtext::textEnd(text, length), text, markerLen, length,
                       der))
        return nullptr;
    return createFromDer2(der.getData2(), der.getSize(), nullptr, store, log);
}

CertCore* CertCore::createFromBase64_2(const char* text, unsigned length, SystemCerts* store,
                                       LogBase& log) {
    if (!text || length == 0) return nullptr;
    // Searched as C text, so it ends at the first zero byte like the other
    // marker searches.
    const char* textEnd = loadtext::textEnd(text, length);
    if (loadtext::find(text, textEnd, kBeginCert))
        return createFromPemCertificate(text, length, store, log);
    // Deliberately asymmetric: PKCS7 is recognised only at the very start.
    const unsigned pkcs7Len = sizeof kBeginPkcs7 - 1;
    if (static_cast<unsigned>(textEnd - text) >= pkcs7Len &&
        memcmp(text, kBeginPkcs7, pkcs7Len) == 0)
        return createFromPemPkcs7(text, length, store, log);
    DataBuffer bytes;
    bytes.setSecure(true);  // base64 of a PEM may carry a private key
    if (!ContentCoding::decodeBase64ToDb(text, length, bytes)) return nullptr;
    return createFromBinary2(reinterpret_cast<const char*>(bytes.getData2()), bytes.getSize(),
                             store, log);
}
