// Finding, decoding and writing the PEM blocks that hold keys.
#pragma once

class DataBuffer;
class StringBuffer;

namespace keypem {

// One "-----BEGIN label-----" ... "-----END label-----" block, as offsets into
// the scanned text.
struct Block {
    unsigned labelStart = 0, labelLen = 0;
    unsigned blockStart = 0, blockEnd = 0;  // the whole block, markers included
    unsigned bodyStart = 0, bodyEnd = 0;    // between the marker lines
    bool encryptedHeaders = false;          // RFC 1421 "Proc-Type: 4,ENCRYPTED"
    bool labelIs(const char* text, const char* label) const;
};

// Finds the first complete block at or after *pos in the n bytes of text and
// moves *pos past it. False when there is none. A BEGIN line without its END is
// passed over.
bool nextBlock(const char* text, unsigned n, unsigned* pos, Block* out);

// Appends the base64-decoded body of the block (header lines skipped). False when
// the body is not base64.
bool decodeBody(const char* text, const Block& b, DataBuffer& out);

// Appends a PEM block: the markers, base64 in 64-character lines, CRLF after
// every line including the last.
bool appendBlock(const char* label, const unsigned char* der, unsigned n, StringBuffer& out);

}  // namespace keypem
