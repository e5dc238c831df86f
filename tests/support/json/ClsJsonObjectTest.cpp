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

// A failed update or load logs one line (an update also the path) and leaves
// the tree as it was.
TEST(ClsJsonObject, FailuresLogALineAndChangeNothing) {
    const char* start = R"({"s":"text","arr":[1],"obj":{"k":1},"n":null})";
    const char* syntax = "Invalid JSON path.";
    const char* notObject = "The JSON path runs through a value that is not an object.";
    const char* notArray = "The JSON path runs through a value that is not an array.";
    const char* gap = "The JSON array index is beyond the end of the array.";
    const char* badText = "Failed to parse the JSON text.";
    struct Case {
        const char *path, *error;  // a path starting with '=' is text to load instead
    } cases[] = {
        {nullptr, syntax},
        {"", syntax},
        {"a..b", syntax},
        {"a.", syntax},
        {"[0]", syntax},
        {"a[]", syntax},
        {"a[-1]", syntax},
        {"a[1", syntax},
        {"arr[0]b", syntax},
        {"arr[99999999999999999999]", syntax},
        {"s.x", notObject},
        {"arr.x", notObject},
        {"s[0]", notArray},
        {"obj[0]", notArray},
        {"arr[2]", gap},
        {"fresh[0].x[3]", gap},
        {"n[1]", gap},
        {R"(={"a":)", badText},
        {R"(={"a":1} x)", badText},
        {"={\"a\":\"\xFF\"}", badText},
        {"=[1,2]", "The JSON text is not an object."},
    };
    for (const auto& c : cases) {
        ClsJsonObject j;
        LogTree log;
        ASSERT_TRUE(j.load(start, log));
        const bool load = c.path && *c.path == '=';
        EXPECT_FALSE(load ? j.load(c.path + 1, log) : j.updateString(c.path, "v", log));
        std::string logged = load ? "" : "-";
        log.findData("path", logged);
        EXPECT_EQ(ovtest::errors(log) + " " + logged + " " + compact(j),
                  std::string(c.error) + " " + (c.path && !load ? c.path : "") + " " + start);
    }
    ClsJsonObject j;
    LogTree log;
    EXPECT_FALSE(j.load(nullptr, log));
    EXPECT_EQ(ovtest::errors(log), "No JSON text given.");
}

TEST(ClsJsonObject, TextIsEscapedAndRoundTrips) {
    const char* values[] = {"a\"b\\c/", "l1\r\n\t\x01", "caf\xC3\xA9 \xF0\x9F\x98\x80"};
    const char* names[] = {"a", "b", "c"};
    ClsJsonObject j, back;
    LogTree log;
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(j.updateString(names[i], values[i], log));
    ASSERT_TRUE(back.load(compact(j).c_str(), log));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(valueAt(back, names[i]), values[i]);
    ASSERT_TRUE(j.updateString("q\"n", "bad\xFFz", log));  // invalid UTF-8 must not break emission
    EXPECT_EQ(compact(j), R"({"a":"a\"b\\c/","b":"l1\r\n\t\u0001","c":"caf)"
                          "\xC3\xA9 \xF0\x9F\x98\x80"
                          R"(","q\"n":"bad)"
                          "\xEF\xBF\xBD"
                          R"(z"})");
    ASSERT_TRUE(j.load(R"({"u":"\u00e9\ud83d\ude00"})", log));
    EXPECT_EQ(valueAt(j, "u"), "\xC3\xA9\xF0\x9F\x98\x80");
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
