// Format detection and file loading: the hub every unknown input goes through.
#include <cstring>

#include "cert/CertCore.h"
#include "cert/LoadText.h"
#include "support/base/ContentCoding.h"
#include "support/pem/ClsPem.h"

namespace {

const char kBeginCert[] = "-----BEGIN CERTIFICATE-----";
const char kBeginPkcs7[] = "-----BEGIN PKCS7-----";

// Tails of the PEM markers of an unencrypted and of an encrypted PKCS#8 key,
// kept scrambled (StringBuffer::litScram). Made with tools/litscram.
const char kKeyMarker1[] = "ajh|n)!b56Q,3:AH";            // 16 characters
const char kKeyMarker2[] = "Vfbx'%0(.pHQOcUogI{|8ry!(/";  // 26 characters

// True when the marker occurs again in the text starting 10 characters after
// its first occurrence at first. The restart point is deliberately not past the
// marker's end.
bool occursAgain(const char* first, const char* end, const char* marker) {
    return end - first > 10 && loadtext::find(first + 10, end, marker) != nullptr;
}

}  // namespace

namespace {

// createFromBinary2, told whether data[size] is a readable zero byte (a file
// read by DataBuffer ends in one), which spares the copy of a text the PEM
// reader needs zero-terminated.
CertCore* detect(const char* data, unsigned size, bool zeroAfter, SystemCerts* store,
                 LogBase& log) {
    LogContextExitor ctx(log, "createFromBinary");
    if (!data || size == 0) return nullptr;

    // The input is searched where it lies: a copy would cost its size again,
    // and a rejected input must not cost several times its size.
    const char* t = data;
    const char* textEnd = loadtext::textEnd(data, size);  // DER never matches a marker

    bool multiple = false;
    const char* p = loadtext::find(t, textEnd, kBeginCert);
    if (p && occursAgain(p, textEnd, kBeginCert)) {
        multiple = true;
        log.logInfo("PEM has multiple certificates.");
    }
    const char* q = loadtext::find(t, textEnd, kBeginPkcs7);
    if (q && occursAgain(q, textEnd, kBeginPkcs7)) {
        multiple = true;
        log.logInfo("PEM has multiple PKCS7 certificates.");
    }

    char marker1[sizeof kKeyMarker1];
    char marker2[sizeof kKeyMarker2];
    memcpy(marker1, kKeyMarker1, sizeof marker1);
    memcpy(marker2, kKeyMarker2, sizeof marker2);
    StringBuffer::litScram(marker1);
    StringBuffer::litScram(marker2);
    // Containment looks at every byte, zero bytes included.
    const char* end = data + size;
    bool unencryptedKey = loadtext::find(t, end, marker1) && !loadtext::find(t, end, marker2);

    if (unencryptedKey || multiple) {
        if (unencryptedKey) log.logInfo("PEM has an unencrypted private key.");
        ClsPem* pem = ClsPem::createNewCls();
        if (pem) {
            _clsOwner owner(pem);
            // The PEM reader takes zero-terminated text. The input is one when
            // a zero byte ends its text; otherwise it is copied, once, into a
            // buffer of exactly that size, wiped when freed (it may hold a
            // private key).
            DataBuffer copy;
            copy.setSecure(true);
            const char* text = t;
            if (textEnd == end && !zeroAfter) {
                const unsigned n = static_cast<unsigned>(textEnd - t);
                if (!copy.ensureCapacity(n + 1) || !copy.append(t, n) || !copy.appendChar(0)) {
                    log.logError("Out of memory.");
                    return nullptr;
                }
                text = reinterpret_cast<const char*>(copy.getData2());
            }
            XString password;
            if (!pem->loadPem(text, password, nullptr, log)) {
                log.logError("Failed to load PEM");
                return nullptr;
            }
            return CertCore::createFromPemMultiple(*pem, store, log);
        }
    }

    if (p)
        return CertCore::createFromPemCertificate(p, size - static_cast<unsigned>(p - t), store,
                                                  log);
    if (q) return CertCore::createFromPemPkcs7(q, size - static_cast<unsigned>(q - t), store, log);

    if (size >= 21 && memcmp(data, "[\"MII", 5) == 0) {
        log.logInfo("Found base64 in JSON array.");
        // The array is cut at its first "] (found among all the bytes), then at
        // the first element's closing quote (found before any zero byte).
        const char* cut = loadtext::find(data, end, "\"]");
        const char* arrEnd = cut ? cut : end;
        const char* first = data + 2;
        const char* firstEnd =
            loadtext::find(first, loadtext::textEnd(first, arrEnd - first), "\"");
        if (firstEnd) arrEnd = firstEnd;
        return CertCore::createFromBase64_2(first, static_cast<unsigned>(arrEnd - first), store,
                                            log);
    }

    LogNull quiet;
    if (ContentCoding::isBase64(data, size, quiet)) {
        log.logInfo("Loading cert from base64...");
        return CertCore::createFromBase64_2(data, size, store, log);
    }
    if (ContentCoding::isBase64_utf16LE(data, size)) {
        log.logInfo("Loading cert from Utf16LE base64...");
        XString x;
        x.appendUtf16N_le(reinterpret_cast<const unsigned char*>(data), size / 2);
        return CertCore::createFromBase64_2(x.getUtf8(), x.getSizeUtf8(), store, log);
    }
    return CertCore::createFromDer2(reinterpret_cast<const unsigned char*>(data), size, nullptr,
                                    store, log);
}

}  // namespace

CertCore* CertCore::createFromBinary2(const char* data, unsigned size, SystemCerts* store,
                                      LogBase& log) {
    return detect(data, size, false, store, log);
}

CertCore* CertCore::createFromBinaryDetectFmt(DataBuffer& data, SystemCerts* store, LogBase& log) {
    LogContextExitor ctx(log, "createFromBinaryDetectFmt");
    // A zero byte after the bytes lets the PEM reader take them as they lie
    // (a caller that reserved room for it pays nothing; else one growth).
    const bool zeroAfter = data.putZeroAfterContents();
    return detect(reinterpret_cast<const char*>(data.getData2()), data.getSize(), zeroAfter, store,
                  log);
}

CertCore* CertCore::createFromFile2(const char* path, SystemCerts* store, LogBase& log) {
    LogContextExitor ctx(log, "createFromFile");
    DataBuffer data;
    data.setSecure(true);  // the file may hold a private key
    if (!data.loadFileUtf8(path, &log)) return nullptr;
    return detect(reinterpret_cast<const char*>(data.getData2()), data.getSize(), true, store, log);
}
