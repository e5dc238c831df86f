#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

#include "CryptoTestUtil.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"
#include "support/crypto/OsslPtr.h"
#include "support/crypto/OvPublicKey.h"
#include "support/crypto/SigVerify.h"

using namespace cryptotest;
using ovtest::shq;

namespace {

struct KeyCase {
    const char* name;  // fixture <name>.key.pem
    const char* typeStr;
    int code;
    const char* family;  // which openssl conversions apply
    bool hasSelfCert;
};

const KeyCase kKeys[] = {
    {"rsa2048", "rsa", 1, "rsa", true},  {"rsa2047", "rsa", 1, "rsa", false},
    {"rsa1024", "rsa", 1, "rsa", false}, {"rsapss2048", "rsa", 1, "pss", true},
    {"p256", "ecdsa", 3, "ec", true},    {"p384", "ecdsa", 3, "ec", true},
    {"p521", "ecdsa", 3, "ec", true},    {"secp256k1", "ecdsa", 3, "ec", true},
    {"dsa2048", "dsa", 2, "dsa", true},  {"dsa1024", "dsa", 2, "dsa", false},
    {"ed25519", "eddsa", 5, "ed", true}, {"ed448", "eddsa", 0, "ed", true},
};

// Loads PEM text or DER bytes.
bool load(_ovPublicKey& k, const std::string& data, LogBase& log) {
    XString pem(data.c_str());
    return data.compare(0, 5, "-----") ? k.loadAnyDer(toDb(data), log) : k.loadPem(true, pem, log);
}

bool loadFile(_ovPublicKey& k, const std::string& path, LogBase& log) {
    return load(k, ovtest::readFile(path), log);
}

// The key's id; a text no id looks like when there is none.
std::string keyId(const _ovPublicKey& k) {
    LogNull log;
    StringBuffer sb;
    return k.getOrvaneKeyId64(sb, log) ? std::string(sb.getString()) : "(no key id)";
}

class OvPublicKeyTest : public cryptotest::OsslTest {};

// Facts and every export against openssl. RSA and DSA keys are loaded from
// their traditional form, which must come out as openssl's PKCS#8. (A SEC1 EC
// key is wrapped whole, curve included, where openssl drops the curve.) The key
// id must not depend on how a key or its certificate was encoded. Signatures
// made with the OpenSSL key the container builds verify under its own SPKI.
TEST_F(OvPublicKeyTest, FactsExportsAndKeyIdMatchOpenssl) {
    struct Conv {
        const char* name;
        const char* family;  // "" for every key type
        const char* cmd;     // %K key file, %C self-signed cert
    } convs[] = {
        {"traditional pem", "rsa ec dsa", "pkey -in %K -traditional"},
        {"pkcs1 public der", "rsa", "rsa -in %K -RSAPublicKey_out -outform DER"},
        {"pkcs1 public pem", "rsa", "rsa -in %K -RSAPublicKey_out"},
        {"compressed spki", "ec", "ec -in %K -pubout -conv_form compressed -outform DER"},
        {"sec1 compressed", "ec", "ec -in %K -conv_form compressed -outform DER"},
        {"sec1 without public", "ec", "ec -in %K -no_public -outform DER"},
        {"pkcs8 without public", "ec",
         "ec -in %K -no_public | openssl pkcs8 -topk8 -nocrypt -outform DER"},
        {"certificate spki", "", "x509 -in %C -pubkey -noout"},
    };
    struct Signer {
        const char* familyOrName;
        const char* md;  // null for EdDSA
        const char* sigAlgHex;
    } signers[] = {
        {"rsa", "SHA256", "300D06092A864886F70D01010B0500"},
        {"ec", "SHA384", "300C06082A8648CE3D0403030500"},  // NULL tolerated for ECDSA
        {"dsa", "SHA256", "300B0609608648016503040302"},
        {"ed25519", nullptr, "300506032B6570"},
        {"ed448", nullptr, "300506032B6571"},
    };
    std::set<std::string> ids;
    for (const KeyCase& c : kKeys) {
        SCOPED_TRACE(c.name);
        const std::string spki = opensslOut("pkey -in %K -pubout -outform DER", c.name);
        const std::string p8 = opensslOut("pkcs8 -topk8 -nocrypt -in %K -outform DER", c.name);
        const bool hasTraditional = strstr("rsa ec dsa", c.family) != nullptr;
        const std::string trad =
            hasTraditional ? opensslOut("pkey -in %K -traditional -outform DER", c.name) : p8;
        std::smatch m;  // "RSA-PSS Private-Key: (2048 bit, 2 primes)"; EdDSA has none
        const std::string text = opensslOut("pkey -in %K -noout -text", c.name);
        unsigned bits = std::regex_search(text, m, std::regex("Private-Key: \\((\\d+) bit"))
                            ? static_cast<unsigned>(std::stoul(m[1]))
                        : !strcmp(c.name, "ed25519") ? 256
                                                     : 448;
        LogTree log;
        _ovPublicKey ref, k, pub;
        ASSERT_TRUE(loadFile(ref, keyFile(c.name), log)) << log.text();  // PKCS#8 PEM
        ASSERT_TRUE(k.loadAnyDer(toDb(c.code == 1 || c.code == 2 ? trad : p8), log)) << log.text();
        ASSERT_TRUE(pub.loadAnyDer(toDb(spki), log)) << log.text();
        const std::string id = keyId(ref);
        EXPECT_TRUE(std::regex_match(id, std::regex("[0-9A-F]{16}"))) << id;
        ids.insert(id);
        for (const _ovPublicKey* key : {&k, &pub}) {
            EXPECT_STREQ(c.typeStr, key->keyTypeStr());
            EXPECT_EQ(c.code, key->keyTypeCode());
            EXPECT_EQ(bits, key->getBitLength());
            EXPECT_EQ(id, keyId(*key));
        }
        EXPECT_TRUE(k.isPrivateKey() && !pub.isPrivateKey());

        DataBuffer pubDer, own, der, tder;
        ASSERT_TRUE(k.toPubKeyDer(true, pubDer, log) && k.toPubKeyDer(false, own, log));
        EXPECT_TRUE(spki == toStr(pubDer));
        // RSA keys (PSS-restricted ones too) have PKCS#1 as their own form.
        EXPECT_TRUE((c.code == 1 ? opensslOut("rsa -in %K -RSAPublicKey_out -outform DER", c.name)
                                 : spki) == toStr(own));
        ASSERT_TRUE(k.toPrivKeyDer(true, der, log) && k.toPrivKeyDer(false, tder, log));
        EXPECT_TRUE(der.isSecure() && p8 == toStr(der));
        EXPECT_TRUE(trad == toStr(tder));  // keys without a traditional form: PKCS#8

        // Traditional PEM: 64-column base64 between CRLF-ended lines with the
        // label of the form, read back by openssl to the same public key.
        StringBuffer pem;
        ASSERT_TRUE(k.toPrivateKeyPem(false, pem, log));
        const std::string label = !hasTraditional ? "PRIVATE KEY"
                                  : c.code == 1   ? "RSA PRIVATE KEY"
                                  : c.code == 3   ? "EC PRIVATE KEY"
                                                  : "DSA PRIVATE KEY";
        EXPECT_TRUE(std::regex_match(
            pem.getString(),
            std::regex("-----BEGIN " + label + "-----\r\n([A-Za-z0-9+/]{64}\r\n)*" +
                       "[A-Za-z0-9+/=]{1,64}\r\n-----END " + label + "-----\r\n")));
        for (const Signer& sg : signers) {
            if (strcmp(sg.familyOrName, c.family) && strcmp(sg.familyOrName, c.name)) continue;
            const std::string msg = "signed by the container", alg = fromHex(sg.sigAlgHex);
            const auto* m = reinterpret_cast<const unsigned char*>(msg.data());
            EVP_PKEY* pkey = k.evpKey(log);
            ASSERT_NE(nullptr, pkey) << log.text();
            ossl::MdCtxPtr ctx(EVP_MD_CTX_new());
            size_t len = 0;
            ASSERT_EQ(1, EVP_DigestSignInit_ex(ctx.get(), nullptr, sg.md, nullptr, nullptr, pkey,
                                               nullptr));
            ASSERT_EQ(1, EVP_DigestSign(ctx.get(), nullptr, &len, m, msg.size()));
            std::string sig(len, '\0');
            ASSERT_EQ(1, EVP_DigestSign(ctx.get(), reinterpret_cast<unsigned char*>(&sig[0]), &len,
                                        m, msg.size()));
            sig.resize(len);
            EXPECT_TRUE(ovVerifySignature(in(spki), in(alg), in(msg), in(sig), log)) << log.text();
            EXPECT_FALSE(ovVerifySignature(in(spki), in(alg), in(msg + "!"), in(sig), log));
        }
        // Every truncation and a trailing byte make a load fail and leave nothing.
        for (const std::string* form : {&spki, &p8, &trad}) {
            _ovPublicKey cut;
            LogNull quiet;
            ASSERT_TRUE(cut.loadAnyDer(toDb(*form), quiet));
            for (size_t len = 0; len < form->size(); ++len)
                EXPECT_TRUE(!cut.loadAnyDer(toDb(form->substr(0, len)), quiet) && cut.isEmpty())
                    << len;
            EXPECT_TRUE(!cut.loadAnyDer(toDb(*form + '\0'), quiet) && cut.isEmpty());
        }
        ASSERT_TRUE(ovtest::writeFile(tmp.file("out.pem"), pem.getString()));
        EXPECT_TRUE(spki ==
                    opensslOut("pkey -in " + shq(tmp.file("out.pem")) + " -pubout -outform DER"));

        for (const Conv& v : convs) {
            if ((*v.family && !strstr(v.family, c.family)) ||
                (strstr(v.cmd, "%C") && !c.hasSelfCert))
                continue;
            SCOPED_TRACE(v.name);
            const std::string cert = shq(fixture(std::string(c.name) + ".self.pem"));
            _ovPublicKey conv;
            ASSERT_TRUE(load(
                conv, opensslOut(std::regex_replace(v.cmd, std::regex("%C"), cert), c.name), log))
                << log.text();
            EXPECT_EQ(id, keyId(conv));
            EXPECT_EQ(bits, conv.getBitLength());
        }
        if (!strcmp(c.family, "rsa")) {
            // An SPKI whose AlgorithmIdentifier leaves out the NULL parameters.
            std::string noNull = spki;
            const std::string withNull("\x06\x09\x2a\x86\x48\x86\xf7\x0d\x01\x01\x01\x05\x00", 13);
            size_t at = noNull.find(withNull);
            ASSERT_NE(std::string::npos, at);
            noNull.erase(at + 11, 2);
            noNull[at - 1] = 0x0b;                     // the AlgorithmIdentifier's length
            noNull[noNull[1] == '\x82' ? 3 : 2] -= 2;  // the SPKI's (two or one length bytes)
            _ovPublicKey conv;
            ASSERT_TRUE(conv.loadAnyDer(toDb(noNull), log)) << log.text();
            EXPECT_EQ(id, keyId(conv));
        }
    }
    EXPECT_EQ(sizeof kKeys / sizeof kKeys[0], ids.size()) << "two keys share an id";
}

TEST_F(OvPublicKeyTest, EncryptedKeysNeedTheirPassword) {
    struct Case {
        const char* name;
        const char* cmd;  // %K: the key
        bool der;
    } cases[] = {
        {"pkcs8 der", "pkcs8 -topk8 -in %K -v2 aes-128-cbc -passout pass:s3cret -outform DER",
         true},
        {"legacy rsa pem", "rsa -in %K -traditional -aes128 -passout pass:s3cret", false},
    };
    _ovPublicKey ref;
    LogNull quiet;
    ASSERT_TRUE(loadFile(ref, keyFile("rsa2048"), quiet));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string data = opensslOut(c.cmd, "rsa2048");
        XString pem(data.c_str());
        _ovPublicKey k;
        auto load = [&](const char* password, LogBase& log) {
            if (!password) return c.der ? k.loadAnyDer(toDb(data), log) : k.loadPem(true, pem, log);
            return c.der ? k.loadEncryptedDer(toDb(data), password, log)
                         : k.loadPemWithPassword(pem, password, log);
        };
        LogTree none, wrong, right;
        EXPECT_FALSE(load(nullptr, none));
        EXPECT_TRUE(none.hasError(c.der
                                      ? "The private key is encrypted; a password is needed."
                                      : "The PEM private key is encrypted; a password is needed."))
            << none.text();
        EXPECT_FALSE(load("wrong", wrong));
        EXPECT_TRUE(wrong.hasError("Failed to decrypt the private key (wrong password?).") &&
                    k.isEmpty());
        ASSERT_TRUE(load("s3cret", right) && k.isPrivateKey()) << right.text();
        EXPECT_EQ(keyId(ref), keyId(k));
    }
}

TEST_F(OvPublicKeyTest, PemBlockChoice) {
    const std::string rsaKey = ovtest::readFile(keyFile("rsa2048"));
    const std::string rsaCert = ovtest::readFile(fixture("rsa2048.self.pem"));
    const std::string p256Pub = opensslOut("pkey -in %K -pubout", "p256");
    struct Case {
        const char* name;
        std::string text;
        bool preferPrivate;
        const char* wantType;  // null: the load fails
        bool wantPrivate;
    } cases[] = {
        {"certificate then key", rsaCert + rsaKey, true, "rsa", true},
        {"public then private, prefer private", p256Pub + rsaKey, true, "rsa", true},
        {"public then private, first block", p256Pub + rsaKey, false, "ecdsa", false},
        {"EC PARAMETERS before the key", opensslOut("ecparam -name prime256v1 -genkey"), true,
         "ecdsa", true},
        {"certificate only", rsaCert, true, nullptr, false},
        {"unterminated block", rsaKey.substr(0, rsaKey.size() / 2), true, nullptr, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        XString pem(c.text.c_str());
        LogTree log;
        _ovPublicKey k;
        ASSERT_EQ(c.wantType != nullptr, k.loadPem(c.preferPrivate, pem, log)) << log.text();
        EXPECT_STREQ(c.wantType ? c.wantType : "none", k.keyTypeStr());
        EXPECT_EQ(c.wantPrivate, k.isPrivateKey());
        EXPECT_EQ(c.wantType == nullptr, log.hasErrors());
    }
}

TEST_F(OvPublicKeyTest, CopyAndClear) {
    LogTree log;
    _ovPublicKey src, copy;
    DataBuffer srcDer, copyDer, nothing;
    StringBuffer none;
    ASSERT_TRUE(loadFile(src, keyFile("p384"), log) && loadFile(copy, keyFile("rsa1024"), log));
    ASSERT_NE(nullptr, src.evpKey(log));  // the copy shares a built OpenSSL key
    ASSERT_TRUE(src.toPrivKeyDer(true, srcDer, log));
    const std::string id = keyId(src);
    ASSERT_TRUE(copy.copyFromPubKey(src, log));
    src.clearPublicKey();
    EXPECT_TRUE(src.isEmpty() && !src.isPrivateKey() && src.getBitLength() == 0 &&
                !strcmp("none", src.keyTypeStr()));
    EXPECT_FALSE(src.getOrvaneKeyId64(none, log) || src.toPrivKeyDer(true, nothing, log));
    EXPECT_EQ(0u, nothing.getSize() + none.getSize());
    EXPECT_TRUE(copy.isPrivateKey() && copy.getBitLength() == 384 && copy.evpKey(log));
    EXPECT_EQ(id, keyId(copy));
    ASSERT_TRUE(copy.toPrivKeyDer(true, copyDer, log));
    EXPECT_TRUE(copyDer.equals(srcDer));
    // Copying an empty container empties; loading a public key drops the private one.
    EXPECT_TRUE(copy.copyFromPubKey(src, log) && copy.isEmpty());
    ASSERT_TRUE(loadFile(copy, keyFile("p384"), log));
    ASSERT_TRUE(copy.loadAnyDer(toDb(opensslOut("pkey -in %K -pubout -outform DER", "p256")), log));
    EXPECT_TRUE(!copy.isPrivateKey() && copy.getBitLength() == 256);
}

TEST_F(OvPublicKeyTest, OtherAlgorithmsArePublicOnly) {
    ASSERT_TRUE(opensslCli("genpkey -algorithm X25519 -out " + shq(tmp.file("x.pem"))));
    const std::string spki =
        opensslOut("pkey -in " + shq(tmp.file("x.pem")) + " -pubout -outform DER");
    const std::string p8 = opensslOut("pkey -in " + shq(tmp.file("x.pem")) + " -outform DER");
    LogTree log;
    _ovPublicKey k;
    ASSERT_TRUE(k.loadAnyDer(toDb(spki), log)) << log.text();
    EXPECT_STREQ("unknown", k.keyTypeStr());
    EXPECT_TRUE(k.keyTypeCode() == 0 && k.getBitLength() == 0);
    EXPECT_EQ(16u, keyId(k).size());
    DataBuffer out;
    ASSERT_TRUE(k.toPubKeyDer(false, out, log));
    EXPECT_TRUE(spki == toStr(out));

    EXPECT_FALSE(k.loadAnyDer(toDb(p8), log));
    EXPECT_TRUE(log.hasError("Unsupported private key algorithm."));
    EXPECT_TRUE(k.isEmpty());
}

// A version 1 PKCS#8 (RFC 5958) carries the public key: it is taken from there,
// and the key is kept as the version 0 form every reader accepts.
TEST_F(OvPublicKeyTest, Pkcs8Version1WithPublicKey) {
    const std::string v0 = opensslOut("pkcs8 -topk8 -nocrypt -in %K -outform DER", "ed25519");
    const std::string spki = opensslOut("pkey -in %K -pubout -outform DER", "ed25519");
    ASSERT_TRUE(v0.size() == 48 && spki.size() == 44);
    // 30 51 | 02 01 01 | AlgorithmIdentifier, privateKey (as in v0) | 81 21 00 <32-byte key>
    std::string v1 = std::string("\x30\x51\x02\x01\x01", 5) + v0.substr(5) +
                     std::string("\x81\x21\x00", 3) + spki.substr(12);
    LogTree log;
    _ovPublicKey k;
    ASSERT_TRUE(k.loadAnyDer(toDb(v1), log)) << log.text();
    DataBuffer pub, priv;
    ASSERT_TRUE(k.toPubKeyDer(true, pub, log) && k.toPrivKeyDer(true, priv, log));
    EXPECT_TRUE(spki == toStr(pub) && v0 == toStr(priv));
    EXPECT_NE(nullptr, k.evpKey(log)) << log.text();
}

}  // namespace
