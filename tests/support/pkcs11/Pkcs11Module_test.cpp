#include "support/pkcs11/Pkcs11Module.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "SoftHsmToken.h"
#include "support/base/LogBase.h"

using ovtest::SoftHsmToken;

namespace {

TEST(Pkcs11Module, LoadFailuresGiveOneClearLine) {
    ovtest::TempDir dir;
    ASSERT_TRUE(ovtest::writeFile(dir.file("fake.so"), "not an ELF file"));
    struct Case {
        const char* name;
        std::string path;
        const char* error;
    };
    const Case cases[] = {
        {"missing file", dir.file("absent.so"), "Failed to load the PKCS11 module."},
        {"not a shared library", dir.file("fake.so"), "Failed to load the PKCS11 module."},
        {"library without C_GetFunctionList", "/lib/x86_64-linux-gnu/libz.so.1",
         "The library is not a PKCS11 module (it has no C_GetFunctionList)."},
        {"empty path", "", "No PKCS11 module path was given."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogTree log;
        Pkcs11Module m;
        EXPECT_FALSE(m.load(c.path.c_str(), log));
        EXPECT_FALSE(m.isLoaded());
        EXPECT_EQ(m.functions(), nullptr);
        EXPECT_TRUE(log.hasError(c.error)) << log.text();
        EXPECT_EQ(log.numErrors(), 1) << log.text();
    }
}

// The module is initialised once per process; an object that lets go must not
// finalise it under another that still uses it, and the last one must finalise
// so that a later load initialises afresh.
TEST(Pkcs11Module, InitialisationIsSharedUntilTheLastUnload) {
    SoftHsmToken& token = SoftHsmToken::get();
    ASSERT_TRUE(token.ok()) << token.error();
    LogTree log;
    CK_INFO info;

    auto first = std::make_unique<Pkcs11Module>();
    Pkcs11Module second;
    ASSERT_TRUE(first->load(SoftHsmToken::kModule, log)) << log.text();
    ASSERT_TRUE(second.load(SoftHsmToken::kModule, log)) << log.text();
    EXPECT_EQ(first->functions(), second.functions());
    first.reset();
    EXPECT_EQ(second.functions()->C_GetInfo(&info), CKR_OK);

    second.unload();
    EXPECT_FALSE(second.isLoaded());

    // After the last unload the module is finalised, so it accepts a fresh
    // C_Initialize ...
    void* lib = dlopen(SoftHsmToken::kModule, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr);
    auto getList = reinterpret_cast<CK_C_GetFunctionList>(dlsym(lib, "C_GetFunctionList"));
    CK_FUNCTION_LIST* fn = nullptr;
    ASSERT_TRUE(getList && getList(&fn) == CKR_OK);
    EXPECT_EQ(fn->C_Initialize(nullptr), CKR_OK) << "the last unload did not finalise";
    fn->C_Finalize(nullptr);
    dlclose(lib);

    // ... and loading again initialises it (a stale share would skip that).
    Pkcs11Module again;
    ASSERT_TRUE(again.load(SoftHsmToken::kModule, log)) << log.text();
    EXPECT_EQ(again.functions()->C_GetInfo(&info), CKR_OK);
}

TEST(Pkcs11Module, ModuleInitialisedElsewhereIsUsedButNotFinalised) {
    SoftHsmToken& token = SoftHsmToken::get();
    ASSERT_TRUE(token.ok()) << token.error();
    // Other code in the process initialises the module on its own.
    void* lib = dlopen(SoftHsmToken::kModule, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr);
    auto getList = reinterpret_cast<CK_C_GetFunctionList>(dlsym(lib, "C_GetFunctionList"));
    ASSERT_NE(getList, nullptr);
    CK_FUNCTION_LIST* fn = nullptr;
    ASSERT_EQ(getList(&fn), CKR_OK);
    ASSERT_EQ(fn->C_Initialize(nullptr), CKR_OK);

    LogTree log;
    {
        Pkcs11Module m;
        ASSERT_TRUE(m.load(SoftHsmToken::kModule, log)) << log.text();
        CK_INFO info;
        EXPECT_EQ(m.functions()->C_GetInfo(&info), CKR_OK);
    }
    CK_INFO info;
    EXPECT_EQ(fn->C_GetInfo(&info), CKR_OK)
        << "our unload finalised a module we did not initialise";
    EXPECT_EQ(log.numErrors(), 0) << log.text();
    fn->C_Finalize(nullptr);
    dlclose(lib);
}

}  // namespace
