#include "support/crypto/RandomGen.h"

#include <openssl/rand.h>

#include <climits>

#include "support/base/DataBuffer.h"

bool RandomGen::randomBytes(unsigned n, DataBuffer& out) {
    if (n == 0) return true;
    if (n > INT_MAX) return false;
    const unsigned oldSize = out.getSize();
    if (oldSize > ~0u - n || !out.ensureCapacity(oldSize + n)) return false;
    // Fill a local block at a time so that a generator failure leaves out as it was
    // without ever exposing partial output.
    unsigned char block[256];
    unsigned left = n;
    while (left) {
        const unsigned chunk = left < sizeof block ? left : static_cast<unsigned>(sizeof block);
        if (RAND_bytes(block, static_cast<int>(chunk)) != 1 || !out.append(block, chunk)) {
            out.shorten(out.getSize() - oldSize);
            OPENSSL_cleanse(block, sizeof block);
            return false;
        }
        left -= chunk;
    }
    OPENSSL_cleanse(block, sizeof block);
    return true;
}
