// A SoftHSM2 token for tests, in a temporary directory of the test process:
// made once, filled from tests/data/pkcs11 (see make.sh there), and found by
// every module that the process initialises after useStore.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "support/base/LogBase.h"
#include "support/pkcs11/ClsPkcs11.h"
#include "support_common/TestUtil.h"

namespace softhsm {

using ovtest::shq;

inline const char* const kModule = "/usr/lib/softhsm/libsofthsm2.so";
inline const char* const kPin = "pin-7391";
inline const char* const kSoPin = "so-pin-5680";
inline const char* const kWrongPin = "wrong-8642";

// Points SOFTHSM2_CONF at the test token's store, or at one that starts empty (one
// free, uninitialised slot). Only modules initialised afterwards see it.
inline void useStore(bool empty = false) {
    static ovtest::TempDir tokens, none;
    const ovtest::TempDir& dir = empty ? none : tokens;
    mkdir(dir.file("tokens").c_str(), 0700);
    ovtest::writeFile(dir.file("conf"), "directories.tokendir = " + dir.file("tokens") +
                                            "\nobjectstore.backend = file\nlog.level = ERROR\n");
    setenv("SOFTHSM2_CONF", dir.file("conf").c_str(), 1);
}

// Fills the token store with what tests/data/pkcs11/make.sh lists. Returns what
// failed, or "".
inline std::string makeToken() {
    useStore();
    const std::string p11 = std::string("pkcs11-tool --module ") + kModule +
                            " --token-label t --login --pin " + kPin + " --write-object ";
    const char* const imports[][3] = {
        {"rsa_cert.key", "privkey", "a1"}, {"rsa_cert.cert", "cert", "a1"},
        {"rsa_key.key", "privkey", "b1"},  {"ec256_key.key", "privkey", "c1"},
        {"ec256_key.pub", "pubkey", "c1"}, {"orphan.cert", "cert", "f1"}};
    std::string cmd = std::string("softhsm2-util --init-token --free --label t --pin ") + kPin +
                      " --so-pin " + kSoPin;
    for (const auto& im : imports)
        cmd += " && " + p11 + shq(ovtest::dataPath("pkcs11/") + im[0] + ".der") + " --type " +
               im[1] + " --id " + im[2];
    std::string out;
    if (ovtest::run(cmd + " 2>&1", &out) != 0) return out;

    // The tool marks every private key for signing; the module itself makes the
    // EC key one that may not sign. The login of `finder` holds for every session
    // of the process on the token.
    LogTree log;
    ClsPkcs11 finder;
    Pkcs11Module module;
    Pkcs11Session session;
    CK_OBJECT_CLASS cls = CKO_PRIVATE_KEY;
    CK_BYTE id = 0xc1;
    CK_BBOOL no = CK_FALSE;
    CK_ATTRIBUTE find[] = {{CKA_CLASS, &cls, sizeof cls}, {CKA_ID, &id, 1}},
                 sign[] = {{CKA_SIGN, &no, sizeof no}};
    std::vector<CK_OBJECT_HANDLE> keys;
    if (!finder.loadModule(kModule, log) || !finder.openSession(-1, false, log) ||
        !finder.login(ClsPkcs11::kUserNormal, kPin, log) || !module.load(kModule, log) ||
        !session.open(module.functions(), finder.sessionSlotId(), true, log) ||
        !session.findObjects(find, 2, keys, log) || keys.size() != 1 ||
        module.functions()->C_SetAttributeValue(session.handle(), keys[0], sign, 1))
        return "clearing CKA_SIGN failed " + log.text();
    return "";
}

// Loads SoftHSM2 into p and opens a read-only session on the first initialised
// token, which is the test token (the free slot beside it must be passed over),
// logged in as the user when asked.
inline void open(ClsPkcs11& p, bool loggedIn) {
    LogTree log;
    ASSERT_TRUE(p.loadModule(kModule, log) && p.openSession(-1, false, log) &&
                (!loggedIn || p.login(ClsPkcs11::kUserNormal, kPin, log)))
        << log.text();
}

// Makes the token once per process and points SoftHSM2 at it.
inline void requireToken() {
    static const std::string error = makeToken();
    useStore();
    ASSERT_EQ(error, "") << "making the SoftHSM2 token";
}

}  // namespace softhsm
