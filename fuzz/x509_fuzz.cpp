// Arbitrary bytes into the X.509 parser (certificate or PKCS#7), then every
// question of a certificate that loaded. Invariants: a load that fails says
// why; a certificate that loads gives back DER that loads again to itself.
#include <cstdlib>

#include "support/asn1/Asn1Node.h"
#include "support/asn1/DerReader.h"
#include "support/base/LogBase.h"
#include "support/base/XString.h"
#include "support/time/OrvaneSysTime.h"
#include "support/x509/OrvaneX509.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    LogTree log;
    OrvaneX509 x;
    if (!x.loadX509DerAlt(data, static_cast<unsigned>(size), nullptr, log)) {
        if (!log.hasErrors()) abort();
        return 0;
    }
    XString t;
    StringBuffer sb;
    DataBuffer db;
    OrvaneSysTime st;
    for (bool subject : {true, false}) {
        for (int style : {0, 1}) {
            x.getDN(subject, true, t, log, style);
            x.getDN_reverseOrder(subject, false, style, t, log);
        }
        x.getDnJson(subject, sb, log, 0);
        RefCountedObject::release(x.getDnAsn(subject, log));
    }
    for (const char* part :
         {"CN", "C", "L", "O", "OU", "ST", "E", "SERIALNUMBER", "DC", "2.5.4.3", "nonsense"}) {
        x.get_SubjectValue(part, t, log);
        x.get_IssuerValue(part, t, log);
    }
    x.getEmailAddress(t, log);
    x.getRfc822Name(t, log);
    x.isIssuerSelf(log);
    for (const char* oid : {"2.5.29.14", "2.5.29.15", "2.5.29.17", "2.5.29.19", "2.5.29.31",
                            "2.5.29.35", "2.5.29.37", "1.3.6.1.5.5.7.1.1"}) {
        x.getExtensionAsnXmlByOid(oid, sb, log);
        x.getExtensionDataByOid(oid, db, log);
        x.getExtensionDerDataByOid(oid, db, log);
        x.getExtensionTextByOid(oid, sb, log);
    }
    x.getSubjectAlternativeNameXml(t, log);
    x.getSubjectKeyIdentifier(sb, log);
    x.get_PublicKey(db, log);
    x.get_PublicKeyForOCSP(db, log);
    x.getSpkiFingerprint(StringBuffer("sha256"), StringBuffer("base64"), t, log);
    x.getOrvaneKeyId64(sb, log);
    x.get_Sha1Thumbprint(db, log);
    x.get_Sha1ThumbprintX(t, log);
    x.get_SignatureValue(db, log);
    x.get_SerialNumber(t, log);
    x.get_IssuerSerial(t, log);
    x.get_Version(t, log);
    x.get_Valid_To_or_From_UTC(true, st, log);
    x.get_Valid_To_or_From_UTC(false, st, log);
    x.isCertExpired(log);
    x.verifyCertSignature(nullptr, log);
    x.getXml(t, log);
    int type = 0;
    unsigned bits = 0;
    x.keyTypeAndBits(&type, &bits);
    DerInput urls[4];
    x.ocspUrls(urls, 4);
    x.crlUrls(urls, 4);

    DataBuffer der;
    x.getCertDer(der);
    OrvaneX509 again;
    if (!again.loadX509DerAlt(der.getData2(), der.getSize(), nullptr, log)) abort();
    DataBuffer der2;
    again.getCertDer(der2);
    if (!der.equals(der2)) abort();
    return 0;
}
