#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/json/ClsJsonObject.h"
#include "support_common/TestUtil.h"

namespace {

std::string compact(const ClsJsonObject& j) {
    StringBuffer sb;
    EXPECT_TRUE(j.emit(sb, true));
    return sb.getString();
}

std::string valueAt(const ClsJsonObject& j, const char* path) {
    StringBuffer sb;
    return j.stringOf(path, sb) ? sb.getString() : "-";
}

TEST(ClsJsonObject, UpdatesBuildTheTreeTheyDescribe) {
    struct Case {
        const char* start;
        std::vector<const char*> pathsAndValues;
        const char* want;
    } cases[] = {
        {"{}",
         {"req[0].cert.alg", "sha1", "req[0].cert.serial", "01", "ext.n", "BB"},
         R"({"req":[{"cert":{"alg":"sha1","serial":"01"}}],"ext":{"n":"BB"}})"},
        {"{}",
         {"a[0]", "x", "a[1]", "y", "a[2].b", "z", "m[0][0]", "p"},
         R"({"a":["x","y",{"b":"z"}],"m":[["p"]]})"},
        {"{}", {"z", "1", "a", "2", "z", "3"}, R"({"z":"3","a":"2"})"},
        {R"({"o":{"p":{"q":1}},"n":null,"b":[null]})",
         {"o.p", "flat", "n.x", "1", "b[0][0]", "2"},
         R"({"o":{"p":"flat"},"n":{"x":"1"},"b":[["2"]]})"},
    };
    for (const auto& c : cases) {
        ClsJsonObject j;
        LogTree log;
        ASSERT_TRUE(j.load(c.start, log));
        for (size_t i = 0; i + 1 < c.pathsAndValues.size(); i += 2)
            j.updateString(c.pathsAndValues[i], c.pathsAndValues[i + 1], log);
        EXPECT_EQ(compact(j) + ovtest::errors(log), c.want);
    }
}

TEST(ClsJsonObject, BadPathsFailWithALineAndChangeNothing) {
    const char* start = R"({"s":"text","arr":[1],"obj":{"k":1},"n":null})";
    const char* syntax = "Invalid JSON path.";
    const char* notObject = "The JSON path runs through a value that is not an object.";
    const char* notArray = "The JSON path runs through a value that is not an array.";
    const char* gap = "The JSON array index is beyond the end of the array.";
    struct Case {
        const char *path, *error;
    } cases[] = {
        {nullptr, syntax},   {"", syntax},
        {"a..b", syntax},    {"a.", syntax},
        {"[0]", syntax},     {"a[]", syntax},
        {"a[-1]", syntax},   {"a[1", syntax},
        {"arr[0]b", syntax}, {"arr[99999999999999999999]", syntax},
        {"s.x", notObject},  {"arr.x", notObject},
        {"s[0]", notArray},  {"obj[0]", notArray},
        {"arr[2]", gap},     {"fresh[0].x[3]", gap},
        {"n[1]", gap},
    };
    for (const auto& c : cases) {
        ClsJsonObject j;
        LogTree log;
        ASSERT_TRUE(j.load(start, log));
        EXPECT_FALSE(j.updateString(c.path, "v", log));
        std::string logged;
        log.findData("path", logged);
        EXPECT_EQ(ovtest::errors(log) + " " + logged + " " + compact(j),
                  std::string(c.error) + " " + (c.path ? c.path : "") + " " + start);
    }
}

TEST(ClsJsonObject, TextIsEscapedAndRoundTrips) {
    struct Case {
        const char *value, *emitted;
    } cases[] = {
        {"a\"b\\c/", R"({"k":"a\"b\\c/"})"},
        {"l1\r\n\t\x01", R"({"k":"l1\r\n\t\u0001"})"},
        {"caf\xC3\xA9 \xF0\x9F\x98\x80", "{\"k\":\"caf\xC3\xA9 \xF0\x9F\x98\x80\"}"},
    };
    for (const auto& c : cases) {
        ClsJsonObject j, back;
        LogTree log;
        ASSERT_TRUE(j.updateString("k", c.value, log));
        EXPECT_EQ(compact(j), c.emitted);
        ASSERT_TRUE(back.load(compact(j).c_str(), log));
        EXPECT_EQ(valueAt(back, "k"), c.value);
    }
    ClsJsonObject j;
    LogTree log;
    ASSERT_TRUE(j.updateString("q\"n", "bad\xFFz", log));  // invalid UTF-8 must not break emission
    EXPECT_EQ(compact(j), "{\"q\\\"n\":\"bad\xEF\xBF\xBDz\"}");
    ASSERT_TRUE(j.load(R"({"u":"\u00e9\ud83d\ude00"})", log));
    EXPECT_EQ(valueAt(j, "u"), "\xC3\xA9\xF0\x9F\x98\x80");
}

TEST(ClsJsonObject, LoadReplacesOnlyOnSuccess) {
    const char* syntax = "Failed to parse the JSON text.";
    struct Case {
        const char *text, *error;
    } cases[] = {
        {R"({"a":)", syntax},
        {R"({"a":1} x)", syntax},
        {"{\"a\":\"\xFF\"}", syntax},
        {"[1,2]", "The JSON text is not an object."},
        {nullptr, "No JSON text given."},
    };
    for (const auto& c : cases) {
        ClsJsonObject j;
        LogTree log;
        ASSERT_TRUE(j.updateString("keep", "me", log));
        EXPECT_FALSE(j.load(c.text, log));
        EXPECT_EQ(ovtest::errors(log) + " " + compact(j),
                  std::string(c.error) + R"( {"keep":"me"})");
    }
}

TEST(ClsJsonObject, ReadersSeeKindsAndSizes) {
    ClsJsonObject j;
    LogTree log;
    ASSERT_TRUE(
        j.load(R"({"s":"t","i":-42,"b":true,"z":null,"o":{"x":1,"y":2},"a":[1,[2,3]]})", log));
    struct Case {
        const char *path, *want;  // stringOf, hasMember, sizeOfArray, sizeOfObject
    } cases[] = {
        {"s", "t 1 -1 -1"},   {"i", "-42 1 -1 -1"}, {"b", "true 1 -1 -1"},    {"z", "- 1 -1 -1"},
        {"o", "- 1 -1 2"},    {"a[1]", "- 1 2 -1"}, {"a[1][1]", "3 1 -1 -1"}, {"a[2]", "- 0 -1 -1"},
        {"s.x", "- 0 -1 -1"}, {"", "- 0 -1 6"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(valueAt(j, c.path) + " " + std::to_string(j.hasMember(c.path)) + " " +
                      std::to_string(j.sizeOfArray(c.path)) + " " +
                      std::to_string(j.sizeOfObject(c.path)),
                  c.want)
            << c.path;
    }
    StringBuffer name("pre:");
    EXPECT_TRUE(j.memberNameAt("o", 1, name) && j.memberNameAt("", 4, name));
    EXPECT_FALSE(j.memberNameAt("o", 2, name) || j.memberNameAt("a", 0, name));
    EXPECT_STREQ(name.getString(), "pre:yo");
    ASSERT_TRUE(j.updateInt("o", 1234567890123LL, log) && j.updateBool("a", false, log) &&
                j.updateNewArray("s", log) && j.updateNewObject("i", log) &&
                j.updateNull("b", log));
    EXPECT_EQ(compact(j), R"({"s":[],"i":{},"b":null,"z":null,"o":1234567890123,"a":false})");
    StringBuffer pretty;
    ASSERT_TRUE(j.emit(pretty, false));
    EXPECT_TRUE(pretty.containsSubstring("{\n  \"s\": [],\n  \"i\": {},\n")) << pretty.getString();
    j.clear();
    EXPECT_EQ(j.get_Size(), 0);
}

TEST(ClsJsonObject, CloneIsDeepAndCarriesOneReference) {
    ClsJsonObject* orig = ClsJsonObject::createNewCls();
    ASSERT_NE(orig, nullptr);
    EXPECT_EQ(orig->getRefCount(), 0);
    LogTree log;
    ASSERT_TRUE(orig->updateString("r[0].c.h", "sha1", log));
    ClsJsonObject* copy = orig->Clone();
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->getRefCount(), 1);
    ASSERT_TRUE(copy->updateString("r[0].c.h", "sha256", log) &&
                orig->updateString("r[0].c.x", "y", log));
    EXPECT_EQ(compact(*orig) + compact(*copy),
              R"({"r":[{"c":{"h":"sha1","x":"y"}}]}{"r":[{"c":{"h":"sha256"}}]})");
    EXPECT_TRUE(copy->decRefCount());  // the clone's only reference: deleted
    EXPECT_TRUE(orig->decRefCount());  // an uncounted object goes at its first release
}

}  // namespace
