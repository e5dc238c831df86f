// OrvaneX509: one parsed X.509 certificate, and OrvaneX509Holder, its owner.
#pragma once

#include <atomic>
#include <cstdint>

#include "support/asn1/DerReader.h"
#include "support/base/DataBuffer.h"
#include "support/base/OrvaneObject.h"

class SystemCerts;
class ClsXml;
class _ovAsn1;
class OrvaneSysTime;
class LogBase;
class StringBuffer;
class XString;

// A certificate held as its DER bytes (owned once) plus the positions of the
// fields inside them. loadX509DerAlt checks the outer structure and records
// where each field lies; names, extension values and keys are decoded only
// when a question needs them, so loading a bundle of hundreds of certificates
// costs little more than copying their bytes.
//
// Every query appends to its output (it never clears it) and returns false
// when nothing is loaded. A loaded certificate is never changed again, so the
// views handed out stay valid for the object's life. The object has no lock:
// its owner (CertCore) serialises calls; only the lazily computed SHA-1
// thumbprint is guarded, so concurrent readers of one object are safe.
class OrvaneX509 : public NonRefCountedObj {
  public:
    OrvaneX509() = default;
    ~OrvaneX509() override = default;
    OrvaneX509(const OrvaneX509&) = delete;
    OrvaneX509& operator=(const OrvaneX509&) = delete;

    // ---- Loading and DER access -------------------------------------------

    // loadX509DerAlt parses one certificate (DER) or a PKCS#7 SignedData (DER or
    // BER) from which it takes the leaf certificate (see X509Pkcs7.h for the
    // rule). Bytes after the certificate are ignored. The store may be null and
    // is not consulted; nothing is added to it. Replaces whatever was loaded.
    // False, with an error line and the object left empty, on malformed input.
    bool loadX509DerAlt(const unsigned char* der, unsigned n, SystemCerts* store, LogBase& log);
    bool isLoaded() const { return m_loaded; }

    // getCertDer appends the certificate's DER; getCertDerSize is 0 when empty.
    void getCertDer(DataBuffer& out) const;
    unsigned getCertDerSize() const { return m_loaded ? m_der.getSize() : 0; }
    // getXml appends the whole certificate rendered as ASN.1 XML.
    bool getXml(XString& out, LogBase& log) const;

    // ---- Names ---------------------------------------------------------------
    // The first bool selects the subject (true) or the issuer (false).
    //
    // Text forms. The RDNs are listed most specific first (the last encoded RDN
    // first, as RFC 4514 prints them) by getDN, and in encoding order by
    // getDN_reverseOrder. withTags puts "CN=" style short names before values.
    // X509Name::kStyleEveryday (0), the everyday form: RDNs separated by ", ",
    // the values of a multi-valued RDN by "+"; a value holding , + = " \ < > # ;
    // a line break or edge spaces is put in double quotes with inner quotes
    // doubled. X509Name::kStyleRfc4514 (1): "," and "+" without spaces, special
    // characters escaped with a backslash, control characters as \XX. Other
    // styles act as the everyday one.
    // Values of a non-string type print as "#" and the hex of their DER.
    bool getDN(bool subject, bool withTags, XString& out, LogBase& log, int style) const;
    bool getDN_reverseOrder(bool subject, bool withTags, int style, XString& out,
                            LogBase& log) const;
    // getDnAsn returns the name as an ASN.1 tree holding one reference for the
    // caller (RefPtr<_ovAsn1>::adopt it), or null.
    _ovAsn1* getDnAsn(bool subject, LogBase& log) const;
    // getDnJson appends JSON members without braces, in encoding order, e.g.
    // "C":"US","O":"Example","CN":"Leaf". An attribute type that occurs more
    // than once becomes one member holding an array of its values, placed where
    // the type first occurs. The int is reserved (pass 0).
    bool getDnJson(bool subject, StringBuffer& out, LogBase& log, int reserved) const;
    // appendToDN appends the text of one RDN given as the ASN.1 XML rendering
    // of its SET (the cursor stands at the <set> node and is left there). When
    // dn is not empty the style's RDN separator goes first. withTags and style
    // mean what they mean for getDN.
    static bool appendToDN(ClsXml& rdn, bool withTags, int style, XString& dn, LogBase& log);

    // The first value (in encoding order) of the attribute; false, appending
    // nothing, when the attribute is absent.
    bool get_SubjectC(XString& o, LogBase& l) const { return nameValue(true, "C", o, l); }
    bool get_SubjectCN(XString& o, LogBase& l) const { return nameValue(true, "CN", o, l); }
    bool get_SubjectE(XString& o, LogBase& l) const { return nameValue(true, "E", o, l); }
    bool get_SubjectL(XString& o, LogBase& l) const { return nameValue(true, "L", o, l); }
    bool get_SubjectO(XString& o, LogBase& l) const { return nameValue(true, "O", o, l); }
    bool get_SubjectOU(XString& o, LogBase& l) const { return nameValue(true, "OU", o, l); }
    bool get_SubjectS(XString& o, LogBase& l) const { return nameValue(true, "ST", o, l); }
    bool get_IssuerC(XString& o, LogBase& l) const { return nameValue(false, "C", o, l); }
    bool get_IssuerCN(XString& o, LogBase& l) const { return nameValue(false, "CN", o, l); }
    bool get_IssuerE(XString& o, LogBase& l) const { return nameValue(false, "E", o, l); }
    bool get_IssuerL(XString& o, LogBase& l) const { return nameValue(false, "L", o, l); }
    bool get_IssuerO(XString& o, LogBase& l) const { return nameValue(false, "O", o, l); }
    bool get_IssuerOU(XString& o, LogBase& l) const { return nameValue(false, "OU", o, l); }
    bool get_IssuerS(XString& o, LogBase& l) const { return nameValue(false, "ST", o, l); }
    // The attribute named by a dotted OID or a name from the attribute table
    // (short or long, ASCII case ignored: "CN", "cn", "commonName", "ST", "S",
    // "E", "emailAddress", "SERIALNUMBER", "GN", "SN", "DC", "UID", ...). Any
    // text, null included, is accepted: an unknown name gives false.
    bool get_SubjectValue(const char* nameOrOid, XString& out, LogBase& log) const {
        return nameValue(true, nameOrOid, out, log);
    }
    bool get_IssuerValue(const char* nameOrOid, XString& out, LogBase& log) const {
        return nameValue(false, nameOrOid, out, log);
    }
    // getEmailAddress: the subject's emailAddress attribute, else the first
    // rfc822Name of the subject alternative names.
    bool getEmailAddress(XString& out, LogBase& log) const;
    // getRfc822Name: the first rfc822Name of the subject alternative names.
    bool getRfc822Name(XString& out, LogBase& log) const;
    // isIssuerSelf: the issuer and subject names are byte-for-byte equal.
    bool isIssuerSelf(LogBase& log) const;

    // ---- Extensions (false, appending and logging nothing, when absent) ------

    // getExtensionAsnXmlByOid appends the extension value rendered as ASN.1 XML.
    bool getExtensionAsnXmlByOid(const char* oid, StringBuffer& out, LogBase& log) const;
    // getExtensionDerDataByOid appends the extension value's DER (the contents
    // of extnValue); getExtensionDataByOid appends the content octets of that
    // value's outermost element (e.g. the key id bytes of a subject key id).
    bool getExtensionDataByOid(const char* oid, DataBuffer& out, LogBase& log) const;
    bool getExtensionDerDataByOid(const char* oid, DataBuffer& out, LogBase& log) const;
    // getExtensionTextByOid appends a one-line text form (X509ExtText::appendText
    // in X509Ext.h lists each extension's); false when the value has no text form.
    bool getExtensionTextByOid(const char* oid, StringBuffer& out, LogBase& log) const;
    // getSubjectAlternativeNameXml appends <subjectAltName> with one child per
    // GeneralName (rfc822Name, dNSName, uniformResourceIdentifier, iPAddress,
    // directoryName, registeredID, otherName, ...).
    bool getSubjectAlternativeNameXml(XString& out, LogBase& log) const;
    // getSubjectKeyIdentifier appends the key identifier in upper-case hex.
    bool getSubjectKeyIdentifier(StringBuffer& out, LogBase& log) const;

    // ---- Keys, fingerprints, identity, validity ------------------------------

    // get_PublicKey appends the SubjectPublicKeyInfo DER.
    bool get_PublicKey(DataBuffer& out, LogBase& log) const;
    // get_PublicKeyForOCSP appends the subjectPublicKey BIT STRING's bytes
    // without the unused-bits count: what an OCSP issuer key hash covers.
    bool get_PublicKeyForOCSP(DataBuffer& out, LogBase& log) const;
    // getSpkiFingerprint appends the hash of the SubjectPublicKeyInfo DER.
    // hashAlg: sha1, sha256, sha384, sha512 (also sha224, sha-256 style, any
    // case); encoding: base64, base64url, hex (upper case), hex_lower/hexlower.
    bool getSpkiFingerprint(const StringBuffer& hashAlg, const StringBuffer& encoding, XString& out,
                            LogBase& log) const;
    // getOrvaneKeyId64 appends the library's 64-bit key id of the public key.
    bool getOrvaneKeyId64(StringBuffer& out, LogBase& log) const;
    // SHA-1 of the DER: 20 bytes, or 40 upper-case hex digits.
    bool get_Sha1Thumbprint(DataBuffer& out, LogBase& log) const;
    bool get_Sha1ThumbprintX(XString& out, LogBase& log) const;
    // get_SignatureValue appends the signature BIT STRING's bytes.
    bool get_SignatureValue(DataBuffer& out, LogBase& log) const;
    // get_SerialNumber appends the INTEGER's content octets in upper-case hex,
    // exactly as encoded (a leading 00 stays; a negative serial shows its
    // two's-complement octets).
    bool get_SerialNumber(XString& out, LogBase& log) const;
    // get_IssuerSerial appends the serial hex, ":" and the issuer DN (getDN
    // style 0 with tags), e.g. "0A1B:CN=Example CA, O=Example, C=US".
    bool get_IssuerSerial(XString& out, LogBase& log) const;
    // get_Version appends "1", "2" or "3".
    bool get_Version(XString& out, LogBase& log) const;
    // Replaces out with notBefore (from true) or notAfter, in UTC.
    bool get_Valid_To_or_From_UTC(bool from, OrvaneSysTime& out, LogBase& log) const;
    // The current time is past notAfter. False also when nothing is loaded.
    bool isCertExpired(LogBase& log) const;
    // Checks the signature with the issuer's public key (null issuer: this
    // certificate's own key, for self-signed certificates).
    bool verifyCertSignature(OrvaneX509* issuer, LogBase& log) const;

    // ---- Views for the rest of the component (empty when not loaded) --------
    // Valid for the object's life; never copied.

    DerInput certDer() const;
    // The whole TBSCertificate element, as signed.
    DerInput tbsDer() const { return view(m_at.tbs); }
    // INTEGER content octets.
    DerInput serialBytes() const { return view(m_at.serial); }
    // The whole issuer Name element.
    DerInput issuerDer() const { return view(m_at.issuer); }
    // The whole subject Name element.
    DerInput subjectDer() const { return view(m_at.subject); }
    // The whole SubjectPublicKeyInfo element.
    DerInput spkiDer() const { return view(m_at.spki); }
    // OID content octets of the key algorithm.
    DerInput spkiAlgOid() const { return view(m_at.spkiAlgOid); }
    // SubjectPublicKey bytes after the unused-bits count.
    DerInput publicKeyBits() const { return view(m_at.spkiBits); }
    // The outer AlgorithmIdentifier element.
    DerInput signatureAlgDer() const { return view(m_at.sigAlg); }
    // Signature bytes after the unused-bits count.
    DerInput signatureBits() const { return view(m_at.sigBits); }
    // Contents of the Extensions SEQUENCE (may be empty).
    DerInput extensionsDer() const { return view(m_at.exts); }
    int versionNumber() const { return m_loaded ? m_at.version + 1 : 0; }

    // The extnValue contents of the extension with the OID (content octets, e.g.
    // 55 1D 0F for key usage); *critical may be null.
    bool findExtension(DerInput oid, DerInput* value, bool* critical) const;
    bool findExtension(const char* dottedOid, DerInput* value, bool* critical) const;
    // Authority key id's keyIdentifier; subject key id's bytes.
    bool authorityKeyId(DerInput* keyId) const;
    bool subjectKeyId(DerInput* keyId) const;
    // Basic constraints; *pathLen is -1 when absent. False without the extension.
    bool basicConstraints(bool* isCa, int* pathLen) const;
    // Key usage as a 9-bit mask in RFC 5280 order from the top: 0x100
    // digitalSignature ... 0x002 encipherOnly, 0x001 decipherOnly. (The first
    // content byte, as bit strings are written, is mask >> 1.)
    bool keyUsage(unsigned* mask) const;
    // The contents of the extended key usage SEQUENCE OF OID.
    bool extKeyUsageDer(DerInput* list) const;
    bool hasExtKeyUsage(const char* dottedOid) const;
    // OCSP responder URIs of the authority information access extension and
    // the URIs of every CRL distribution point's fullName, in certificate
    // order. Fill up to max views; return how many there are (may exceed max).
    int ocspUrls(DerInput* out, int max) const;
    int crlUrls(DerInput* out, int max) const;

    // Key type code (0 unknown, 1 RSA, 2 DSA, 3 EC, 5 Ed25519) and size in bits
    // (RSA modulus, DSA p, EC curve size, 256 Ed25519, 448 Ed448 with code 0),
    // from the SPKI without building a key; the same answers the key container
    // gives. False (type 0) when the key cannot be read.
    bool keyTypeAndBits(int* keyType, unsigned* bits) const;

    size_t heapUsage() const override { return m_der.heapUsage(); }

  private:
    // Offsets into m_der rather than pointers, so nothing dangles if the buffer
    // were ever moved.
    struct Span {
        uint32_t off = 0;
        uint32_t len = 0;
    };
    // Extensions that queries reach for most, found once at load.
    enum KnownExt { kSki, kAki, kKeyUsage, kSan, kBasicConstraints, kCrlDp, kEku, kAia, kNumKnown };

    void reset();
    bool adopt(DerInput cert, LogBase& log);
    void takeParsed(OrvaneX509& from);
    bool loadPkcs7Leaf(DerInput in, LogBase& log);
    bool parseCertificate(LogBase& log);
    bool parseExtensions(DerInput exts, LogBase& log);
    Span spanOf(DerInput v) const;
    DerInput view(Span s) const;
    DerInput nameDer(bool subject) const { return subject ? subjectDer() : issuerDer(); }
    bool knownExt(KnownExt k, DerInput* value) const;
    bool nameValue(bool subject, const char* nameOrOid, XString& out, LogBase& log) const;
    bool nameDnText(bool subject, bool withTags, int style, bool encodingOrder, XString& out,
                    LogBase& log) const;
    bool sha1(unsigned char digest[20]) const;

    // Where each field lies in m_der: all a parse records besides the bytes.
    struct Layout {
        uint8_t version = 0;  // 0 = v1
        Span tbs, serial, issuer, notBefore, notAfter, subject;
        Span spki, spkiAlgOid, spkiBits, exts, sigAlg, sigBits, tbsSigAlg;
        Span known[kNumKnown];
        uint8_t knownPresent = 0;   // bit per KnownExt
        uint8_t knownCritical = 0;  // bit per KnownExt
    };

    DataBuffer m_der;
    bool m_loaded = false;
    Layout m_at;

    // The SHA-1 thumbprint is the one costly answer asked again and again
    // (store lookups), so it is kept once computed: 0 not yet, 1 being
    // written, 2 ready.
    mutable std::atomic<uint8_t> m_sha1State{0};
    mutable unsigned char m_sha1[20] = {0};
};

// The owner of exactly one OrvaneX509 (an empty one from construction).
class OrvaneX509Holder : public NonRefCountedObj {
  public:
    // Creates an empty OrvaneX509 to parse into (null only when memory is out).
    OrvaneX509Holder();
    // Deletes the held certificate.
    ~OrvaneX509Holder() override;
    OrvaneX509Holder(const OrvaneX509Holder&) = delete;
    OrvaneX509Holder& operator=(const OrvaneX509Holder&) = delete;

    // Takes ownership of x509 (may be null), deleting the previous one.
    void setX509(OrvaneX509* x509);
    // The held certificate, still owned by the holder; may be null.
    OrvaneX509* getX509() const { return m_x509; }

  private:
    OrvaneX509* m_x509 = nullptr;
};
