#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/json/ClsJsonObject.h"

namespace {

std::string compact(const ClsJsonObject& j) {
    StringBuffer sb;
    EXPECT_TRUE(j.emit(sb, true));
    return sb.getString();
}

std::string valueAt(const ClsJsonObject& j, const char* path) {
    StringBuffer sb;
    if (!j.stringOf(path, sb)) return "<none>";
    return sb.getString();
}

struct Owner {
    explicit Owner(ClsJsonObject* p) : obj(p) {}
    ~Owner() { RefCountedObject::release(obj); }
    ClsJsonObject* obj;
};

TEST(ClsJsonObject, UpdatesBuildTheTreeTheyDescribe) {
    struct Update {
        const char* path;
        const char* value;
    };
    struct Case {
        const char* name;
        std::vector<Update> updates;
        const char* want;
    };
    const Case cases[] = {
        {"missing array and objects are created",
         {{"request[0].cert.hashAlg", "sha1"}},
         R"({"request":[{"cert":{"hashAlg":"sha1"}}]})"},
        {"later updates reuse what exists",
         {{"request[0].cert.hashAlg", "sha1"},
          {"request[0].cert.serialNumber", "01"},
          {"extensions.ocspNonce", "BBA="}},
         R"({"request":[{"cert":{"hashAlg":"sha1","serialNumber":"01"}}],)"
         R"("extensions":{"ocspNonce":"BBA="}})"},
        {"index equal to the size appends",
         {{"a[0]", "x"}, {"a[1]", "y"}, {"a[2].b", "z"}},
         R"({"a":["x","y",{"b":"z"}]})"},
        {"nested indexes", {{"m[0][0]", "x"}, {"m[0][1]", "y"}}, R"({"m":[["x","y"]]})"},
        {"existing values are replaced",
         {{"a[0]", "x"}, {"a[0]", "y"}, {"k", "1"}, {"k", "2"}},
         R"({"a":["y"],"k":"2"})"},
        {"a container at the leaf is replaced",
         {{"o.p.q", "x"}, {"o.p", "flat"}},
         R"({"o":{"p":"flat"}})"},
        {"members keep the order of their first update",
         {{"zeta", "1"}, {"alpha", "2"}, {"mid", "3"}, {"zeta", "4"}},
         R"({"zeta":"4","alpha":"2","mid":"3"})"},
        {"names may hold spaces and other punctuation", {{"a b-c:d", "v"}}, R"({"a b-c:d":"v"})"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ClsJsonObject j;
        LogTree log;
        for (const Update& u : c.updates)
            EXPECT_TRUE(j.updateString(u.path, u.value, log)) << u.path;
        EXPECT_EQ(compact(j), c.want);
        EXPECT_FALSE(log.hasErrors()) << log.text();
    }
}

TEST(ClsJsonObject, BadPathsFailWithALineAndChangeNothing) {
    const char* start = R"({"s":"text","arr":[1],"obj":{"k":1},"n":null})";
    const char* syntax = "Invalid JSON path.";
    const char* notObject = "The JSON path runs through a value that is not an object.";
    const char* notArray = "The JSON path runs through a value that is not an array.";
    const char* gap = "The JSON array index is beyond the end of the array.";
    struct Case {
        const char* name;
        const char* path;
        const char* error;
    };
    const Case cases[] = {
        {"null path", nullptr, syntax},
        {"empty path", "", syntax},
        {"empty segment", "a..b", syntax},
        {"leading dot", ".a", syntax},
        {"trailing dot", "a.", syntax},
        {"index first", "[0]", syntax},
        {"empty index", "a[]", syntax},
        {"letters in index", "a[x]", syntax},
        {"negative index", "a[-1]", syntax},
        {"unclosed index", "a[1", syntax},
        {"stray bracket", "a]", syntax},
        {"name glued after index", "arr[0]b", syntax},
        {"huge index", "arr[99999999999999999999]", syntax},
        {"through a string", "s.x", notObject},
        {"through a number", "obj.k.z", notObject},
        {"name into an array", "arr.x", notObject},
        {"index into a string", "s[0]", notArray},
        {"index into an object", "obj[0]", notArray},
        {"gap in an existing array", "arr[2]", gap},
        {"gap in a new array", "fresh[1]", gap},
        {"gap deep in a new path", "fresh[0].x[3]", gap},
        {"gap after a null", "n[1]", gap},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ClsJsonObject j;
        LogTree log;
        ASSERT_TRUE(j.load(start, log));
        EXPECT_FALSE(j.updateString(c.path, "v", log));
        EXPECT_TRUE(log.hasError(c.error)) << log.text();
        EXPECT_EQ(log.numErrors(), 1);
        std::string logged;
        EXPECT_TRUE(log.findData("path", logged));
        EXPECT_EQ(logged, c.path ? c.path : "");
        EXPECT_EQ(compact(j), R"({"s":"text","arr":[1],"obj":{"k":1},"n":null})");
    }
}

TEST(ClsJsonObject, NullOnThePathBecomesTheNeededContainer) {
    ClsJsonObject j;
    LogTree log;
    ASSERT_TRUE(j.load(R"({"a":null,"b":[null]})", log));
    EXPECT_TRUE(j.updateString("a.x", "1", log));
    EXPECT_TRUE(j.updateString("b[0][0]", "2", log));
    EXPECT_EQ(compact(j), R"({"a":{"x":"1"},"b":[["2"]]})");
}

TEST(ClsJsonObject, TextIsEscapedAndRoundTrips) {
    struct Case {
        const char* name;
        const char* value;
        const char* emitted;  // the value as it appears in compact output
    };
    const Case cases[] = {
        {"quote and backslash", "a\"b\\c", R"("a\"b\\c")"},
        {"line breaks and tab", "l1\r\nl2\t", R"("l1\r\nl2\t")"},
        {"control character", "x\x01y", R"("x\u0001y")"},
        {"slash stays", "http://h/p", R"("http://h/p")"},
        {"UTF-8 stays UTF-8", "caf\xC3\xA9 \xE2\x82\xAC", "\"caf\xC3\xA9 \xE2\x82\xAC\""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ClsJsonObject j;
        LogTree log;
        ASSERT_TRUE(j.updateString("k", c.value, log));
        std::string text = compact(j);
        EXPECT_EQ(text, std::string("{\"k\":") + c.emitted + "}");

        ClsJsonObject back;
        ASSERT_TRUE(back.load(text.c_str(), log)) << log.text();
        EXPECT_EQ(valueAt(back, "k"), c.value);
    }

    // Escaped member names, and invalid UTF-8 that must not break emission.
    ClsJsonObject j;
    LogTree log;
    ASSERT_TRUE(j.updateString("q\"n", "bad\xFFz", log));
    EXPECT_EQ(compact(j), "{\"q\\\"n\":\"bad\xEF\xBF\xBDz\"}");

    ASSERT_TRUE(j.load(R"({"u":"\u00e9\ud83d\ude00"})", log));
    EXPECT_EQ(valueAt(j, "u"), "\xC3\xA9\xF0\x9F\x98\x80");
}

TEST(ClsJsonObject, LoadReplacesOnlyOnSuccess) {
    struct Case {
        const char* name;
        const char* text;
        const char* error;
    };
    const Case cases[] = {
        {"syntax error", R"({"a":)", "Failed to parse the JSON text."},
        {"trailing garbage", R"({"a":1} x)", "Failed to parse the JSON text."},
        {"invalid UTF-8", "{\"a\":\"\xFF\"}", "Failed to parse the JSON text."},
        {"array root", "[1,2]", "The JSON text is not an object."},
        {"string root", R"("s")", "The JSON text is not an object."},
        {"no text", nullptr, "No JSON text given."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ClsJsonObject j;
        LogTree log;
        ASSERT_TRUE(j.updateString("keep", "me", log));
        EXPECT_FALSE(j.load(c.text, log));
        EXPECT_TRUE(log.hasError(c.error)) << log.text();
        EXPECT_EQ(compact(j), R"({"keep":"me"})");
    }
    ClsJsonObject j;
    LogTree log;
    ASSERT_TRUE(j.updateString("old", "x", log));
    ASSERT_TRUE(j.load(R"({"n":1})", log));
    EXPECT_EQ(compact(j), R"({"n":1})");
}

TEST(ClsJsonObject, ReadersSeeKindsAndSizes) {
    ClsJsonObject j;
    LogTree log;
    ASSERT_TRUE(
        j.load(R"({"s":"t","i":-42,"b":true,"z":null,"o":{"x":1,"y":2},"a":[1,[2,3]]})", log));
    EXPECT_EQ(j.get_Size(), 6);

    struct Case {
        const char* path;
        const char* text;  // "<none>" when stringOf fails
        bool has;
        int arraySize;
        int objectSize;
    };
    const Case cases[] = {
        {"s", "t", true, -1, -1},         {"i", "-42", true, -1, -1},
        {"b", "true", true, -1, -1},      {"z", "<none>", true, -1, -1},
        {"o", "<none>", true, -1, 2},     {"o.y", "2", true, -1, -1},
        {"a", "<none>", true, 2, -1},     {"a[1]", "<none>", true, 2, -1},
        {"a[1][1]", "3", true, -1, -1},   {"a[2]", "<none>", false, -1, -1},
        {"o.w", "<none>", false, -1, -1}, {"s.x", "<none>", false, -1, -1},
        {"a..", "<none>", false, -1, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(valueAt(j, c.path), c.text);
        EXPECT_EQ(j.hasMember(c.path), c.has);
        EXPECT_EQ(j.sizeOfArray(c.path), c.arraySize);
        EXPECT_EQ(j.sizeOfObject(c.path), c.objectSize);
    }

    StringBuffer sb("prefix:");
    EXPECT_TRUE(j.stringOf("s", sb));
    EXPECT_STREQ(sb.getString(), "prefix:t");

    StringBuffer name;
    EXPECT_TRUE(j.memberNameAt("o", 1, name));
    EXPECT_STREQ(name.getString(), "y");
    EXPECT_FALSE(j.memberNameAt("o", 2, name));
    EXPECT_FALSE(j.memberNameAt("a", 0, name));
    name.clear();
    EXPECT_TRUE(j.memberNameAt("", 4, name));
    EXPECT_STREQ(name.getString(), "o");

    ASSERT_TRUE(j.updateInt("n", 1234567890123LL, log));
    ASSERT_TRUE(j.updateBool("f", false, log));
    ASSERT_TRUE(j.updateNewObject("o", log));
    ASSERT_TRUE(j.updateNewArray("a", log));
    EXPECT_EQ(valueAt(j, "n"), "1234567890123");
    EXPECT_EQ(valueAt(j, "f"), "false");
    EXPECT_EQ(j.sizeOfObject("o"), 0);
    EXPECT_EQ(j.sizeOfArray("a"), 0);
    j.clear();
    EXPECT_EQ(j.get_Size(), 0);
}

TEST(ClsJsonObject, IndentedOutputParsesToTheSameTree) {
    ClsJsonObject j;
    LogTree log;
    ASSERT_TRUE(j.updateString("request[0].cert.hashAlg", "sha1", log));
    ASSERT_TRUE(j.updateInt("n", 5, log));
    StringBuffer pretty;
    ASSERT_TRUE(j.emit(pretty, false));
    EXPECT_TRUE(pretty.containsSubstring("\n  \"request\": [\n")) << pretty.getString();
    ClsJsonObject back;
    ASSERT_TRUE(back.load(pretty.getString(), log));
    EXPECT_EQ(compact(back), compact(j));
}

TEST(ClsJsonObject, CloneIsDeepAndCarriesOneReference) {
    Owner orig(ClsJsonObject::createNewCls());
    ASSERT_NE(orig.obj, nullptr);
    EXPECT_EQ(orig.obj->getRefCount(), 0);
    LogTree log;
    ASSERT_TRUE(orig.obj->updateString("request[0].cert.hashAlg", "sha1", log));
    ASSERT_TRUE(orig.obj->updateString("list[0]", "a", log));

    ClsJsonObject* copy = orig.obj->Clone();
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->getRefCount(), 1);
    EXPECT_EQ(compact(*copy), compact(*orig.obj));

    // Changes deep inside either tree stay in that tree.
    ASSERT_TRUE(copy->updateString("request[0].cert.hashAlg", "sha256", log));
    ASSERT_TRUE(copy->updateString("list[1]", "b", log));
    ASSERT_TRUE(orig.obj->updateString("request[0].cert.extra", "x", log));
    EXPECT_EQ(compact(*orig.obj),
              R"({"request":[{"cert":{"hashAlg":"sha1","extra":"x"}}],"list":["a"]})");
    EXPECT_EQ(compact(*copy), R"({"request":[{"cert":{"hashAlg":"sha256"}}],"list":["a","b"]})");

    EXPECT_TRUE(copy->decRefCount());  // the clone's only reference: deleted
}

}  // namespace
