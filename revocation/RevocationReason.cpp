#include "revocation/RevocationReason.h"

namespace revocation {

const char* reasonName(int code) {
    static const char* const kNames[] = {
        "unspecified",   "keyCompromise",        "cACompromise",    "affiliationChanged",
        "superseded",    "cessationOfOperation", "certificateHold", nullptr,
        "removeFromCRL", "privilegeWithdrawn",   "aACompromise",
    };
    if (code < 0 || code >= static_cast<int>(sizeof(kNames) / sizeof(kNames[0]))) return nullptr;
    return kNames[code];
}

}  // namespace revocation
