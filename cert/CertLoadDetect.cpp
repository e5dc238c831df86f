// Format detection and file loading: the hub every unknown input goes through.
#include <cstring>

#include "cert/CertCore.h"
#include "support/base/ContentCoding.h"
#include "support/base/ovstr.h"
#include "support/pem/ClsPem.h"

namespace {

const char kBeginCert[] = "-----BEGIN CERTIFICATE-----";
const char kBeginPkcs7[] = "-----BEGIN PKCS7-----";

// Tails of the PEM markers of an unencrypted and of an encrypted PKCS#8 key,
// kept scrambled (StringBuffer::litScram). Made with tools/litscram.
const char kKeyMarker1[] = "ajh|n)!b56Q,3:AH";            // 16 characters
const char kKeyMarker2[] = "Vfbx'%0(.pHQOcUogI{|8ry!(/";  // 26 characters

// True when the marker occurs again in text starting 10 characters after its
// first occurrence at first. The restart point is deliberately not past the
// marker's end.
bool occursAgain(const char* first, const char* marker) {
    unsigned rest = ovStrLen(first);
    if (rest <= 10) return false;
    return ovStrStr(first + 10, marker) != nullptr;
}

}  // namespace

CertCore* CertCore::createFromBinary2(const char* data, unsigned size, SystemCerts* store,
                                      LogBase& log) {
    LogContextExitor ctx(log, "createFromBinary");
    if (!data || size == 0) return nullptr;

    StringBuffer text;
    if (!text.appendN(data, size)) return nullptr;
    const char* t = text.getString();

    // Marker searches stop at the first zero byte, so DER never matches them.
    bool multiple = false;
    const char* p = ovStrStr(t, kBeginCert);
    if (p && occursAgain(p, kBeginCert)) {
        multiple = true;
        log.logInfo("PEM has multiple certificates.");
    }
    const char* q = ovStrStr(t, kBeginPkcs7);
    if (q && occursAgain(q, kBeginPkcs7)) {
        multiple = true;
        log.logInfo("PEM has multiple PKCS7 certificates.");
    }

    char marker1[sizeof kKeyMarker1];
    char marker2[sizeof kKeyMarker2];
    memcpy(marker1, kKeyMarker1, sizeof marker1);
    memcpy(marker2, kKeyMarker2, sizeof marker2);
    StringBuffer::litScram(marker1);
    StringBuffer::litScram(marker2);
    bool unencryptedKey = text.containsSubstring(marker1) && !text.containsSubstring(marker2);

    if (unencryptedKey || multiple) {
        if (unencryptedKey) log.logInfo("PEM has an unencrypted private key.");
        ClsPem* pem = ClsPem::createNewCls();
        if (pem) {
            _clsOwner owner(pem);
            XString password;
            if (!pem->loadPem(t, password, nullptr, log)) {
                log.logError("Failed to load PEM");
                return nullptr;
            }
            return createFromPemMultiple(*pem, store, log);
        }
    }

    if (p) return createFromPemCertificate(p, size - static_cast<unsigned>(p - t), store, log);
    if (q) return createFromPemPkcs7(q, size - static_cast<unsigned>(q - t), store, log);

    if (size >= 21 && memcmp(data, "[\"MII", 5) == 0) {
        log.logInfo("Found base64 in JSON array.");
        StringBuffer arr;
        arr.appendN(data, size);
        arr.chopAtSubstr("\"]", false);
        if (arr.getSize() < 2) return nullptr;
        // Only the first element is used: with more than one, what is left
        // after the cut still holds the others behind the first closing quote.
        const char* firstEnd = ovStrChr(arr.getString() + 2, '"');
        if (firstEnd)
            arr.shorten(arr.getSize() - static_cast<unsigned>(firstEnd - arr.getString()));
        return createFromBase64_2(arr.getString() + 2, arr.getSize() - 2, store, log);
    }

    LogNull quiet;
    if (ContentCoding::isBase64(data, size, quiet)) {
        log.logInfo("Loading cert from base64...");
        return createFromBase64_2(data, size, store, log);
    }
    if (ContentCoding::isBase64_utf16LE(data, size)) {
        log.logInfo("Loading cert from Utf16LE base64...");
        XString x;
        x.appendUtf16N_le(reinterpret_cast<const unsigned char*>(data), size / 2);
        return createFromBase64_2(x.getUtf8(), x.getSizeUtf8(), store, log);
    }
    return createFromDer2(reinterpret_cast<const unsigned char*>(data), size, nullptr, store, log);
}

CertCore* CertCore::createFromBinaryDetectFmt(DataBuffer& data, SystemCerts* store, LogBase& log) {
    LogContextExitor ctx(log, "createFromBinaryDetectFmt");
    return createFromBinary2(reinterpret_cast<const char*>(data.getData2()), data.getSize(), store,
                             log);
}

CertCore* CertCore::createFromFile2(const char* path, SystemCerts* store, LogBase& log) {
    LogContextExitor ctx(log, "createFromFile");
    DataBuffer data;
    if (!data.loadFileUtf8(path, &log)) return nullptr;
    return createFromBinary2(reinterpret_cast<const char*>(data.getData2()), data.getSize(), store,
                             log);
}
