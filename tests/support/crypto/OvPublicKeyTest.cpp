#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>
#include <vector>

#include "CryptoTestUtil.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"
#include "support/crypto/OvPublicKey.h"

using cryptotest::fixture;
using cryptotest::opensslCli;
using cryptotest::toDb;
using cryptotest::toStr;
using ovtest::readFile;
using ovtest::shq;

namespace {

struct KeyCase {
    const char* name;  // fixture <name>.key.pem
    const char* typeStr;
    int code;
    unsigned bits;  // 0: ask openssl
    bool hasSelfCert;
    const char* family;  // which extra openssl conversions apply
};

const KeyCase kKeys[] = {
    {"rsa2048", "rsa", 1, 0, true, "rsa"},    {"rsa2047", "rsa", 1, 0, false, "rsa"},
    {"rsa1024", "rsa", 1, 0, false, "rsa"},   {"rsapss2048", "rsa", 1, 0, true, "pss"},
    {"p256", "ecdsa", 3, 0, true, "ec"},      {"p384", "ecdsa", 3, 0, true, "ec"},
    {"p521", "ecdsa", 3, 0, true, "ec"},      {"secp256k1", "ecdsa", 3, 0, true, "ec"},
    {"dsa2048", "dsa", 2, 0, true, "dsa"},    {"dsa1024", "dsa", 2, 0, false, "dsa"},
    {"ed25519", "eddsa", 5, 256, true, "ed"}, {"ed448", "eddsa", 0, 448, true, "ed"},
};

std::string keyFile(const KeyCase& c) {
    return fixture(std::string(c.name) + ".key.pem");
}

// Loads a file: PEM by the extension, anything else as DER.
bool loadFile(_ovPublicKey& k, const std::string& path, LogBase& log) {
    std::string data = readFile(path);
    if (path.size() > 4 && path.compare(path.size() - 4, 4, ".pem") == 0) {
        XString pem(data.c_str());
        return k.loadPem(true, pem, log);
    }
    return k.loadAnyDer(toDb(data), log);
}

std::string keyId(const _ovPublicKey& k) {
    LogTree log;
    StringBuffer sb;
    EXPECT_TRUE(k.getOrvaneKeyId64(sb, log)) << log.text();
    return sb.getString();
}

std::string opensslSpkiDer(const std::string& keyPath) {
    std::string der;
    EXPECT_TRUE(opensslCli("pkey -in " + shq(keyPath) + " -pubout -outform DER", &der));
    return der;
}

class OvPublicKeyTest : public cryptotest::OsslTest {};

TEST_F(OvPublicKeyTest, TypeAndSizeAgreeWithOpenssl) {
    for (const KeyCase& c : kKeys) {
        SCOPED_TRACE(c.name);
        unsigned want = c.bits;
        if (!want) {
            std::string text;
            ASSERT_TRUE(opensslCli("pkey -in " + shq(keyFile(c)) + " -noout -text", &text));
            std::smatch m;
            ASSERT_TRUE(std::regex_search(text, m, std::regex("Private-Key: \\((\\d+) bit")));
            want = static_cast<unsigned>(std::stoul(m[1]));
        }
        LogTree log;
        _ovPublicKey priv;
        ASSERT_TRUE(loadFile(priv, keyFile(c), log)) << log.text();
        EXPECT_TRUE(priv.isPrivateKey());
        EXPECT_STREQ(c.typeStr, priv.keyTypeStr());
        EXPECT_EQ(c.code, priv.keyTypeCode());
        EXPECT_EQ(want, priv.getBitLength());
        EXPECT_EQ(c.code == 1, priv.isRsa());
        EXPECT_EQ(c.code == 2, priv.isDsa());
        EXPECT_EQ(c.code == 3, priv.isEcc());
        EXPECT_EQ(c.code == 5, priv.isEd25519());

        // The public half alone gives the same facts.
        _ovPublicKey pub;
        ASSERT_TRUE(pub.loadAnyDer(toDb(opensslSpkiDer(keyFile(c))), log)) << log.text();
        EXPECT_FALSE(pub.isPrivateKey());
        EXPECT_STREQ(c.typeStr, pub.keyTypeStr());
        EXPECT_EQ(want, pub.getBitLength());
    }
}

// The key id must not depend on how a key or its certificate was encoded.
TEST_F(OvPublicKeyTest, KeyIdIsTheSameInEveryEncoding) {
    struct Conv {
        const char* name;
        const char* family;  // "" for every key type
        const char* cmd;     // %K key file, %C self-signed cert, %O output
    };
    const Conv convs[] = {
        {"pkcs8 der", "", "pkcs8 -topk8 -nocrypt -in %K -outform DER -out %O"},
        {"spki der", "", "pkey -in %K -pubout -outform DER -out %O"},
        {"spki pem", "", "pkey -in %K -pubout -out %O.pem"},
        {"traditional pem", "rsa ec dsa", "pkey -in %K -traditional -out %O.pem"},
        {"traditional der", "rsa ec dsa", "pkey -in %K -traditional -outform DER -out %O"},
        {"pkcs1 public der", "rsa", "rsa -in %K -RSAPublicKey_out -outform DER -out %O"},
        {"pkcs1 public pem", "rsa", "rsa -in %K -RSAPublicKey_out -out %O.pem"},
        {"compressed spki", "ec", "ec -in %K -pubout -conv_form compressed -outform DER -out %O"},
        {"sec1 compressed", "ec", "ec -in %K -conv_form compressed -outform DER -out %O"},
        {"sec1 without public", "ec", "ec -in %K -no_public -outform DER -out %O"},
        {"pkcs8 without public", "ec",
         "ec -in %K -no_public | openssl pkcs8 -topk8 -nocrypt -outform DER -out %O"},
    };
    std::set<std::string> ids;
    for (const KeyCase& c : kKeys) {
        SCOPED_TRACE(c.name);
        LogTree log;
        _ovPublicKey ref;
        ASSERT_TRUE(loadFile(ref, keyFile(c), log)) << log.text();
        const std::string id = keyId(ref);
        EXPECT_TRUE(std::regex_match(id, std::regex("[0-9A-F]{16}"))) << id;
        ids.insert(id);

        std::vector<std::pair<std::string, std::string>> cmds;
        for (const Conv& v : convs) {
            if (*v.family && !strstr(v.family, c.family)) continue;
            cmds.emplace_back(v.name, v.cmd);
        }
        if (c.hasSelfCert)
            cmds.emplace_back("certificate spki", "x509 -in %C -pubkey -noout -out %O.pem");
        int n = 0;
        for (auto& [name, cmd] : cmds) {
            SCOPED_TRACE(name);
            std::string out = tmp.file(std::string(c.name) + "_" + std::to_string(n++));
            std::string full = cmd;
            full = std::regex_replace(full, std::regex("%K"), shq(keyFile(c)));
            full = std::regex_replace(full, std::regex("%C"),
                                      shq(fixture(std::string(c.name) + ".self.pem")));
            if (full.find("%O.pem") != std::string::npos) out += ".pem";
            full = std::regex_replace(full, std::regex("%O(\\.pem)?"), shq(out));
            ASSERT_TRUE(opensslCli(full)) << full;
            _ovPublicKey k;
            ASSERT_TRUE(loadFile(k, out, log)) << log.text();
            EXPECT_EQ(id, keyId(k));
            EXPECT_EQ(ref.getBitLength(), k.getBitLength());
        }
    }
    EXPECT_EQ(sizeof kKeys / sizeof kKeys[0], ids.size()) << "two keys share an id";
}

// Pins the id scheme itself: the first 8 bytes of SHA-256 over a type label, a
// zero byte and the key's canonical bytes, all taken here from openssl output.
TEST_F(OvPublicKeyTest, KeyIdFollowsTheDocumentedScheme) {
    auto hexBytes = [](std::string hex) {
        std::string out;
        hex.erase(std::remove_if(hex.begin(), hex.end(), [](char ch) { return !isxdigit(ch); }),
                  hex.end());
        for (size_t i = 0; i + 1 < hex.size(); i += 2)
            out += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
        return out;
    };
    std::string mod;
    ASSERT_TRUE(
        opensslCli("rsa -in " + shq(fixture("rsa2048.key.pem")) + " -noout -modulus", &mod));
    mod = hexBytes(mod.substr(mod.find('=') + 1));
    const std::string spkiEd = opensslSpkiDer(fixture("ed25519.key.pem"));
    const std::string spkiEc = opensslSpkiDer(fixture("p256.key.pem"));
    struct Case {
        const char* name;
        const char* key;
        std::string input;
    };
    const Case cases[] = {
        {"rsa", "rsa2048", std::string("rsa", 4) + mod.substr(mod[0] == 0 ? 1 : 0)},
        {"ed25519", "ed25519", std::string("ed25519", 8) + spkiEd.substr(spkiEd.size() - 32)},
        {"p256", "p256",
         std::string("ec", 3) + hexBytes("2A8648CE3D030107") + spkiEc.substr(spkiEc.size() - 65)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(ovtest::writeFile(tmp.file("in"), c.input));
        std::string digest;
        ASSERT_TRUE(opensslCli("dgst -sha256 -r " + shq(tmp.file("in")), &digest));
        std::string want = digest.substr(0, 16);
        for (char& ch : want) ch = static_cast<char>(toupper(ch));
        LogTree log;
        _ovPublicKey k;
        ASSERT_TRUE(loadFile(k, fixture(std::string(c.key) + ".key.pem"), log)) << log.text();
        EXPECT_EQ(want, keyId(k));
        // The static entry point gives the same for a bare SPKI.
        StringBuffer sb;
        std::string spki = opensslSpkiDer(fixture(std::string(c.key) + ".key.pem"));
        ASSERT_TRUE(_ovPublicKey::keyIdFromSpki(reinterpret_cast<const unsigned char*>(spki.data()),
                                                static_cast<unsigned>(spki.size()), sb, log));
        EXPECT_EQ(want, sb.getString());
    }
}

TEST_F(OvPublicKeyTest, ExportsMatchOpensslEncodings) {
    for (const KeyCase& c : kKeys) {
        SCOPED_TRACE(c.name);
        const std::string kf = shq(keyFile(c));
        LogTree log;
        _ovPublicKey k;
        ASSERT_TRUE(loadFile(k, keyFile(c), log)) << log.text();
        const std::string spki = opensslSpkiDer(keyFile(c));

        DataBuffer pub;
        ASSERT_TRUE(k.toPubKeyDer(true, pub, log));
        EXPECT_TRUE(spki == toStr(pub));
        DataBuffer own;
        ASSERT_TRUE(k.toPubKeyDer(false, own, log));
        // RSA keys (PSS-restricted ones too) have PKCS#1 as their own form.
        std::string wantOwn;
        if (c.code == 1) {
            ASSERT_TRUE(opensslCli("rsa -in " + kf + " -RSAPublicKey_out -outform DER", &wantOwn));
        } else {
            wantOwn = spki;
        }
        EXPECT_TRUE(wantOwn == toStr(own));

        std::string p8, trad;
        ASSERT_TRUE(opensslCli("pkcs8 -topk8 -nocrypt -in " + kf + " -outform DER", &p8));
        DataBuffer der;
        ASSERT_TRUE(k.toPrivKeyDer(true, der, log));
        EXPECT_TRUE(der.isSecure());
        EXPECT_TRUE(p8 == toStr(der));

        // Traditional forms are byte for byte what openssl writes; keys without
        // one come out as PKCS#8.
        const bool hasTraditional = strstr("rsa ec dsa", c.family) != nullptr;
        if (hasTraditional) {
            ASSERT_TRUE(opensslCli("pkey -in " + kf + " -traditional -outform DER", &trad));
        }
        DataBuffer tder;
        ASSERT_TRUE(k.toPrivKeyDer(false, tder, log));
        EXPECT_TRUE((hasTraditional ? trad : p8) == toStr(tder));

        // PEM output is read back by openssl to the same public key.
        for (bool pkcs8 : {true, false}) {
            SCOPED_TRACE(pkcs8 ? "pkcs8 pem" : "traditional pem");
            StringBuffer pem;
            ASSERT_TRUE(k.toPrivateKeyPem(pkcs8, pem, log));
            std::string text = pem.getString();
            const char* label = pkcs8 || !hasTraditional   ? "PRIVATE KEY"
                                : !strcmp(c.family, "rsa") ? "RSA PRIVATE KEY"
                                : !strcmp(c.family, "ec")  ? "EC PRIVATE KEY"
                                                           : "DSA PRIVATE KEY";
            EXPECT_EQ(0u, text.find(std::string("-----BEGIN ") + label + "-----\r\n"));
            const std::string endLine = std::string("-----END ") + label + "-----\r\n";
            ASSERT_GE(text.size(), endLine.size());
            EXPECT_EQ(endLine, text.substr(text.size() - endLine.size()));
            EXPECT_TRUE(std::regex_match(
                text, std::regex("-----BEGIN [A-Z ]+-----\r\n([A-Za-z0-9+/]{64}\r\n)*"
                                 "[A-Za-z0-9+/=]{1,64}\r\n-----END [A-Z ]+-----\r\n")));
            ASSERT_TRUE(ovtest::writeFile(tmp.file("out.pem"), text));
            EXPECT_TRUE(spki == opensslSpkiDer(tmp.file("out.pem")));
        }
    }
}

// Traditional inputs are wrapped into the standard PKCS#8 encoding, the same
// bytes openssl produces from them.
TEST_F(OvPublicKeyTest, TraditionalInputBecomesStandardPkcs8) {
    for (const char* name : {"rsa2048", "dsa2048"}) {
        SCOPED_TRACE(name);
        const std::string kf = shq(fixture(std::string(name) + ".key.pem"));
        std::string trad, p8;
        ASSERT_TRUE(opensslCli("pkey -in " + kf + " -traditional -outform DER", &trad));
        ASSERT_TRUE(opensslCli("pkcs8 -topk8 -nocrypt -in " + kf + " -outform DER", &p8));
        LogTree log;
        _ovPublicKey k;
        ASSERT_TRUE(k.loadAnyDer(toDb(trad), log)) << log.text();
        DataBuffer out;
        ASSERT_TRUE(k.toPrivKeyDer(true, out, log));
        EXPECT_TRUE(p8 == toStr(out));
    }
}

TEST_F(OvPublicKeyTest, EncryptedKeysNeedTheirPassword) {
    struct Case {
        const char* name;
        const char* cmd;  // %K key, %O output
        bool der;
    };
    const Case cases[] = {
        {"pkcs8 pem", "pkcs8 -topk8 -in %K -v2 aes-256-cbc -passout pass:s3cret -out %O", false},
        {"pkcs8 der",
         "pkcs8 -topk8 -in %K -v2 aes-128-cbc -passout pass:s3cret -outform DER -out %O", true},
        {"legacy rsa pem", "rsa -in %K -traditional -aes128 -passout pass:s3cret -out %O", false},
    };
    const std::string kf = fixture("rsa2048.key.pem");
    LogTree refLog;
    _ovPublicKey ref;
    ASSERT_TRUE(loadFile(ref, kf, refLog));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string cmd = std::regex_replace(c.cmd, std::regex("%K"), shq(kf));
        cmd = std::regex_replace(cmd, std::regex("%O"), shq(tmp.file("enc")));
        ASSERT_TRUE(opensslCli(cmd));
        const std::string data = readFile(tmp.file("enc"));
        XString pem(data.c_str());
        _ovPublicKey k;
        {
            LogTree log;
            EXPECT_FALSE(c.der ? k.loadAnyDer(toDb(data), log) : k.loadPem(true, pem, log));
            EXPECT_TRUE(
                log.hasError(c.der ? "The private key is encrypted; a password is needed."
                                   : "The PEM private key is encrypted; a password is needed."))
                << log.text();
            EXPECT_TRUE(k.isEmpty());
        }
        {
            LogTree log;
            EXPECT_FALSE(c.der ? k.loadEncryptedDer(toDb(data), "wrong", log)
                               : k.loadPemWithPassword(pem, "wrong", log));
            EXPECT_TRUE(log.hasError("Failed to decrypt the private key (wrong password?)."));
            EXPECT_TRUE(k.isEmpty());
        }
        LogTree log;
        ASSERT_TRUE(c.der ? k.loadEncryptedDer(toDb(data), "s3cret", log)
                          : k.loadPemWithPassword(pem, "s3cret", log))
            << log.text();
        EXPECT_TRUE(k.isPrivateKey());
        EXPECT_EQ(keyId(ref), keyId(k));
    }
}

TEST_F(OvPublicKeyTest, PemBlockChoice) {
    const std::string rsaKey = readFile(fixture("rsa2048.key.pem"));
    const std::string rsaCert = readFile(fixture("rsa2048.self.pem"));
    std::string p256Pub, ecGen;
    ASSERT_TRUE(opensslCli("pkey -in " + shq(fixture("p256.key.pem")) + " -pubout", &p256Pub));
    ASSERT_TRUE(opensslCli("ecparam -name prime256v1 -genkey", &ecGen));
    std::string crlf;
    for (char ch : rsaKey) crlf += ch == '\n' ? std::string("\r\n") : std::string(1, ch);
    struct Case {
        const char* name;
        std::string text;
        bool preferPrivate;
        const char* wantType;  // null: the load fails
        bool wantPrivate;
    };
    const Case cases[] = {
        {"certificate then key", rsaCert + rsaKey, true, "rsa", true},
        {"public then private, prefer private", p256Pub + rsaKey, true, "rsa", true},
        {"public then private, first block", p256Pub + rsaKey, false, "ecdsa", false},
        {"EC PARAMETERS before the key", ecGen, true, "ecdsa", true},
        {"CRLF line ends", crlf, true, "rsa", true},
        {"certificate only", rsaCert, true, nullptr, false},
        {"unterminated block", rsaKey.substr(0, rsaKey.size() / 2), true, nullptr, false},
        {"damaged base64", std::regex_replace(rsaKey, std::regex("\nM"), "\n*"), true, nullptr,
         false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        XString pem(c.text.c_str());
        LogTree log;
        _ovPublicKey k;
        const bool ok = k.loadPem(c.preferPrivate, pem, log);
        ASSERT_EQ(c.wantType != nullptr, ok) << log.text();
        if (!ok) {
            EXPECT_TRUE(log.hasErrors());
            EXPECT_TRUE(k.isEmpty());
            continue;
        }
        EXPECT_STREQ(c.wantType, k.keyTypeStr());
        EXPECT_EQ(c.wantPrivate, k.isPrivateKey());
    }
}

// Every truncation and a trailing byte make the load fail and leave nothing.
TEST_F(OvPublicKeyTest, MalformedDerFailsCleanly) {
    struct Case {
        const char* name;
        const char* cmd;
    };
    const Case cases[] = {
        {"spki", "pkey -in %K -pubout -outform DER"},
        {"pkcs8", "pkey -in %K -outform DER"},
        {"traditional", "pkey -in %K -traditional -outform DER"},
    };
    for (const char* key : {"p256", "rsa1024"}) {
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(key) + " " + c.name);
            std::string der;
            ASSERT_TRUE(opensslCli(std::regex_replace(c.cmd, std::regex("%K"),
                                                      shq(fixture(std::string(key) + ".key.pem"))),
                                   &der));
            _ovPublicKey k;
            LogTree log;
            ASSERT_TRUE(k.loadAnyDer(toDb(der), log));
            for (size_t len = 0; len < der.size(); ++len) {
                LogNull quiet;
                EXPECT_FALSE(k.loadAnyDer(toDb(der.substr(0, len)), quiet)) << len;
                EXPECT_TRUE(k.isEmpty());
            }
            EXPECT_FALSE(k.loadAnyDer(toDb(der + '\0'), log));
            EXPECT_TRUE(k.isEmpty());
        }
    }
}

TEST_F(OvPublicKeyTest, CopyAndClear) {
    LogTree log;
    _ovPublicKey src;
    ASSERT_TRUE(loadFile(src, fixture("p384.key.pem"), log));
    ASSERT_NE(nullptr, src.evpKey(log));  // the copy shares a built OpenSSL key
    const std::string id = keyId(src);
    DataBuffer srcDer;
    ASSERT_TRUE(src.toPrivKeyDer(true, srcDer, log));

    _ovPublicKey copy;
    ASSERT_TRUE(loadFile(copy, fixture("rsa1024.key.pem"), log));
    ASSERT_TRUE(copy.copyFromPubKey(src, log));
    src.clearPublicKey();
    EXPECT_TRUE(src.isEmpty());
    EXPECT_FALSE(src.isPrivateKey());
    EXPECT_EQ(0u, src.getBitLength());
    EXPECT_STREQ("none", src.keyTypeStr());
    StringBuffer none;
    EXPECT_FALSE(src.getOrvaneKeyId64(none, log));
    DataBuffer nothing;
    EXPECT_FALSE(src.toPrivKeyDer(true, nothing, log));
    EXPECT_EQ(0u, nothing.getSize());

    EXPECT_TRUE(copy.isPrivateKey());
    EXPECT_STREQ("ecdsa", copy.keyTypeStr());
    EXPECT_EQ(384u, copy.getBitLength());
    EXPECT_EQ(id, keyId(copy));
    EXPECT_NE(nullptr, copy.evpKey(log));
    DataBuffer copyDer;
    ASSERT_TRUE(copy.toPrivKeyDer(true, copyDer, log));
    EXPECT_TRUE(copyDer.equals(srcDer));

    // Copying an empty container empties; loading a public key drops the private one.
    ASSERT_TRUE(copy.copyFromPubKey(src, log));
    EXPECT_TRUE(copy.isEmpty());
    ASSERT_TRUE(loadFile(copy, fixture("p384.key.pem"), log));
    ASSERT_TRUE(copy.loadAnyDer(toDb(opensslSpkiDer(fixture("p256.key.pem"))), log));
    EXPECT_FALSE(copy.isPrivateKey());
    EXPECT_EQ(256u, copy.getBitLength());
}

TEST_F(OvPublicKeyTest, OtherAlgorithmsArePublicOnly) {
    ASSERT_TRUE(opensslCli("genpkey -algorithm X25519 -out " + shq(tmp.file("x.pem"))));
    std::string spki, p8;
    ASSERT_TRUE(opensslCli("pkey -in " + shq(tmp.file("x.pem")) + " -pubout -outform DER", &spki));
    ASSERT_TRUE(opensslCli("pkey -in " + shq(tmp.file("x.pem")) + " -outform DER", &p8));
    LogTree log;
    _ovPublicKey k;
    ASSERT_TRUE(k.loadAnyDer(toDb(spki), log)) << log.text();
    EXPECT_FALSE(k.isEmpty());
    EXPECT_STREQ("unknown", k.keyTypeStr());
    EXPECT_EQ(0, k.keyTypeCode());
    EXPECT_EQ(0u, k.getBitLength());
    EXPECT_EQ(16u, keyId(k).size());
    DataBuffer out;
    ASSERT_TRUE(k.toPubKeyDer(false, out, log));
    EXPECT_TRUE(spki == toStr(out));

    EXPECT_FALSE(k.loadAnyDer(toDb(p8), log));
    EXPECT_TRUE(log.hasError("Unsupported private key algorithm."));
    EXPECT_TRUE(k.isEmpty());
}

}  // namespace

namespace {

// A version 1 PKCS#8 (RFC 5958) carries the public key: it is taken from there,
// and the key is kept as the version 0 form every reader accepts.
TEST_F(OvPublicKeyTest, Pkcs8Version1WithPublicKey) {
    const std::string kf = shq(fixture("ed25519.key.pem"));
    std::string v0, spki;
    ASSERT_TRUE(opensslCli("pkcs8 -topk8 -nocrypt -in " + kf + " -outform DER", &v0));
    ASSERT_TRUE(opensslCli("pkey -in " + kf + " -pubout -outform DER", &spki));
    ASSERT_EQ(48u, v0.size());
    ASSERT_EQ(44u, spki.size());
    // 30 51 | 02 01 01 | AlgorithmIdentifier, privateKey (as in v0) | 81 21 00 <32-byte key>
    std::string v1 = std::string("\x30\x51\x02\x01\x01", 5) + v0.substr(5) +
                     std::string("\x81\x21\x00", 3) + spki.substr(12);
    LogTree log;
    _ovPublicKey k;
    ASSERT_TRUE(k.loadAnyDer(toDb(v1), log)) << log.text();
    DataBuffer pub, priv;
    ASSERT_TRUE(k.toPubKeyDer(true, pub, log));
    EXPECT_TRUE(spki == toStr(pub));
    ASSERT_TRUE(k.toPrivKeyDer(true, priv, log));
    EXPECT_TRUE(v0 == toStr(priv));
    EXPECT_NE(nullptr, k.evpKey(log)) << log.text();
}

}  // namespace
