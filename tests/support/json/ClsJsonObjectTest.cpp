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

// Updates make the containers their paths name and replace what is in the way
// (a member keeps its place); the readers then see each kind and size.
TEST(ClsJsonObject, PathsBuildAndReadTheTree) {
    ClsJsonObject j;
    LogTree log;
    ASSERT_TRUE(j.load(R"({"z":"1","o":{"p":{"q":1}},"n":null,"b":[null]})", log));
    const char* updates[][2] = {{"r[0].c.alg", "sha1"}, {"r[0].c.sn", "01"}, {"a[0]", "x"},
                                {"a[1].b", "y"},        {"m[0][0]", "p"},    {"z", "3"},
                                {"o.p", "flat"},        {"n.x", "1"},        {"b[0][0]", "2"}};
    for (const auto& u : updates) EXPECT_TRUE(j.updateString(u[0], u[1], log)) << u[0];
    ASSERT_TRUE(j.updateInt("i", -1234567890123LL, log) && j.updateBool("t", true, log) &&
                j.updateNull("u", log) && j.updateNewObject("e", log) &&
                j.updateNewArray("o.y", log));
    EXPECT_EQ(compact(j), R"({"z":"3","o":{"p":"flat","y":[]},"n":{"x":"1"},"b":[["2"]],)"
                          R"("r":[{"c":{"alg":"sha1","sn":"01"}}],"a":["x",{"b":"y"}],)"
                          R"("m":[["p"]],"i":-1234567890123,"t":true,"u":null,"e":{}})");
    struct Read {
        const char *path, *want;  // stringOf, kind (string, object, other), array and object sizes
    } reads[] = {{"z", "3 s -1 -1"},      {"i", "-1234567890123 v -1 -1"},
                 {"t", "true v -1 -1"},   {"u", "- v -1 -1"},
                 {"o", "- o -1 2"},       {"o.y", "- v 0 -1"},
                 {"a", "- v 2 -1"},       {"b[0][0]", "2 s -1 -1"},
                 {"e", "- o -1 0"},       {"a[2]", "- none -1 -1"},
                 {"z.x", "- none -1 -1"}, {"", "- none -1 11"}};
    for (const auto& r : reads) {
        const char* kind = !j.hasMember(r.path)   ? "none"
                           : j.isStringAt(r.path) ? "s"
                           : j.isObjectAt(r.path) ? "o"
                                                  : "v";
        StringBuffer value;
        EXPECT_EQ((j.stringOf(r.path, value) ? value.getString() : "-") + std::string(" ") + kind +
                      " " + std::to_string(j.sizeOfArray(r.path)) + " " +
                      std::to_string(j.sizeOfObject(r.path)),
                  r.want)
            << r.path;
    }
}

// A failed update or load logs one line (an update also the path) and leaves
// the tree as it was.
TEST(ClsJsonObject, FailuresLogALineAndChangeNothing) {
    const char* start = R"({"s":"text","arr":[1],"obj":{"k":1},"n":null})";
    struct Case {
        const char* error;
        std::vector<const char*> paths;  // a path starting with '=' is text to load instead
    } cases[] = {
        {"Invalid JSON path.",
         {nullptr, "", "a..b", "[0]", "a[-1]", "a[1", "arr[0]b", "arr[99999999999999999999]"}},
        {"The JSON path runs through a value that is not an object.", {"s.x"}},
        {"The JSON path runs through a value that is not an array.", {"s[0]", "obj[0]"}},
        {"The JSON array index is beyond the end of the array.",
         {"arr[2]", "fresh[0].x[3]", "n[1]"}},
        {"Failed to parse the JSON text.", {R"(={"a":)", R"(={"a":1} x)", "={\"a\":\"\xFF\"}"}},
        {"The JSON text is not an object.", {"=[1,2]"}},
    };
    for (const auto& c : cases) {
        for (const char* path : c.paths) {
            ClsJsonObject j;
            LogTree log;
            ASSERT_TRUE(j.load(start, log));
            const bool load = path && *path == '=';
            EXPECT_FALSE(load ? j.load(path + 1, log) : j.updateString(path, "v", log));
            std::string logged = load ? "" : "-";
            log.findData("path", logged);
            EXPECT_EQ(ovtest::errors(log) + " " + logged + " " + compact(j),
                      std::string(c.error) + " " + (path && !load ? path : "") + " " + start);
        }
    }
    LogTree log;
    EXPECT_FALSE(ClsJsonObject().load(nullptr, log));
    EXPECT_EQ(ovtest::errors(log), "No JSON text given.");
}

// Invalid UTF-8 must not break emission.
TEST(ClsJsonObject, TextIsEscaped) {
    ClsJsonObject j;
    LogTree log;
    ASSERT_TRUE(j.updateString("a", "a\"b\\c/", log) && j.updateString("b", "l1\r\n\t\x01", log) &&
                j.updateString("c", "caf\xC3\xA9 \xF0\x9F\x98\x80", log) &&
                j.updateString("q\"n", "bad\xFFz", log));
    EXPECT_EQ(compact(j), R"({"a":"a\"b\\c/","b":"l1\r\n\t\u0001","c":"caf)"
                          "\xC3\xA9 \xF0\x9F\x98\x80"
                          R"(","q\"n":"bad)"
                          "\xEF\xBF\xBD"
                          R"(z"})");
}

TEST(ClsJsonObject, CloneIsDeepAndCarriesOneReference) {
    ClsJsonObject* orig = ClsJsonObject::createNewCls();
    LogTree log;
    ASSERT_TRUE(orig && orig->getRefCount() == 0 && orig->updateString("r[0].h", "sha1", log));
    ClsJsonObject* copy = orig->Clone();
    ASSERT_TRUE(copy && copy->getRefCount() == 1 && copy->updateString("r[0].h", "sha256", log));
    EXPECT_EQ(compact(*orig) + compact(*copy), R"({"r":[{"h":"sha1"}]}{"r":[{"h":"sha256"}]})");
    EXPECT_TRUE(copy->decRefCount() && orig->decRefCount());  // both deleted at their release
}

}  // namespace
