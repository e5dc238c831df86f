// Fuzzes the ASN.1 node tree and the DER-to-XML rendering with one input:
// step-wise and full decoding, encoding back (both ways), the XML (which must
// parse), and the single-item decoder.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <pugixml.hpp>

#include "support/asn1/Asn1Node.h"
#include "support/asn1/Asn1Xml.h"
#include "support/asn1/DerReader.h"
#include "support/asn1/MpMath.h"
#include "support/base/DataBuffer.h"
#include "support/base/ExtPtrArray.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"

namespace {

#define CHECK(cond)                                                                      \
    do {                                                                                 \
        if (!(cond)) {                                                                   \
            fprintf(stderr, "%s:%d: invariant failed: %s\n", __FILE__, __LINE__, #cond); \
            abort();                                                                     \
        }                                                                                \
    } while (0)

// One item, in strict DER all the way down.
bool strictItem(const unsigned char* p, size_t n, bool noSegments) {
    DerParser parser(DerInput(p, n), false);
    DerElement e;
    return parser.readAny(&e) && !parser.hasMore() && der::isStrictDer(DerInput(p, n), noSegments);
}

bool sameBytes(const DataBuffer& a, const unsigned char* p, size_t n) {
    return a.getSize() == n && (n == 0 || memcmp(a.getData2(), p, n) == 0);
}

void fuzzTree(const unsigned char* data, size_t size) {
    LogNull log;
    _ovAsn1* root = _ovAsn1::DecodeToAsn_1Step(data, static_cast<unsigned>(size), log);
    if (!root) return;
    CHECK(root->getRefCount() == 1);

    // The item's own bytes (trailing input is ignored by the decoder).
    DerParser p(DerInput(data, size), true);
    DerElement whole;
    CHECK(p.readAny(&whole));
    const unsigned char* item = whole.whole.data();
    const size_t itemLen = whole.whole.size();
    const bool itemIsDer = strictItem(item, itemLen, false);

    // Undecoded: written back exactly when it was DER.
    DataBuffer raw;
    CHECK(root->EncodeToDer(raw, false, log));
    if (itemIsDer) CHECK(sameBytes(raw, item, itemLen));

    if (root->m_constructed && root->DecodeInner(true, log)) {
        DataBuffer kept;
        CHECK(root->EncodeToDer(kept, false, log));
        if (itemIsDer) CHECK(sameBytes(kept, item, itemLen));
        CHECK(strictItem(kept.getData2(), kept.getSize(), false));
    }

    DataBuffer der;
    if (root->EncodeToDer(der, true, log)) {
        CHECK(strictItem(der.getData2(), der.getSize(), true));
        // Normalizing is idempotent.
        _ovAsn1* again = _ovAsn1::DecodeToAsn_1Step(der.getData2(), der.getSize(), log);
        CHECK(again);
        DataBuffer der2;
        CHECK(again->EncodeToDer(der2, true, log));
        CHECK(der2.equals(der));
        again->decRefCount();
    }
    root->decRefCount();
}

void fuzzXml(const unsigned char* data, size_t size) {
    LogNull log;
    DataBuffer in;
    if (!in.append(data, static_cast<unsigned>(size))) return;
    StringBuffer strict, lenient;
    ExtPtrArray extra;
    bool okStrict = Asn1Xml::derToXml(in, true, false, strict, nullptr, log);
    bool okLenient = Asn1Xml::derToXml(in, true, true, lenient, &extra, log);
    // DER is BER: whatever strict mode renders, lenient mode renders the same.
    if (okStrict) CHECK(okLenient && strict.equals(lenient));
    if (!okLenient) {
        CHECK(lenient.isEmpty() && extra.getSize() == 0);
        return;
    }
    CHECK(extra.getSize() == 1);
    pugi::xml_document doc;
    pugi::xml_parse_result r = doc.load_buffer(lenient.getString(), lenient.getSize());
    if (!r) {
        fprintf(stderr, "XML does not parse: %s\n%s\n", r.description(), lenient.getString());
        abort();
    }
    CHECK(doc.first_child() && !doc.first_child().next_sibling());

    StringBuffer pretty;
    CHECK(Asn1Xml::derToXml(in, false, true, pretty, nullptr, log));
    pugi::xml_document doc2;
    CHECK(doc2.load_buffer(pretty.getString(), pretty.getSize()));
}

void fuzzItem(const unsigned char* data, size_t size) {
    LogNull log;
    unsigned consumed = 0;
    ov_asnItem* item = Asn1Xml::decodeAsnItem(data, static_cast<unsigned>(size), consumed, log);
    if (!item) {
        CHECK(consumed == 0);
        return;
    }
    CHECK(consumed > 0 && consumed <= size);
    mp_int v;
    if (item->get_mp(v, log)) {
        StringBuffer dec;
        CHECK(MpMath::mpToRadixString(v, dec, 10));
        CHECK(!dec.isEmpty());
    }
    delete item;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 20)) return 0;
    fuzzTree(data, size);
    fuzzXml(data, size);
    fuzzItem(data, size);
    return 0;
}
