#include "support/base/DataBuffer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <string>
#include <vector>

#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support_common/TestUtil.h"

namespace {

bool allZero(const unsigned char* p, unsigned n) {
    for (unsigned i = 0; i < n; ++i)
        if (p[i]) return false;
    return true;
}

TEST(DataBuffer, SecureClearWipesInPlaceAndKeepsMemory) {
    DataBuffer db;
    db.setSecure(true);
    db.append("secret-key-bytes", 16);
    unsigned char* p = db.getDataRw();
    db.secureClear();
    EXPECT_EQ(db.getSize(), 0u);
    EXPECT_EQ(db.getDataRw(), p);  // memory kept, so we may look at it
    EXPECT_TRUE(allZero(p, 16));
}

// Growth moves the bytes to a larger block; the old one must not go back to the
// allocator holding them. The hook sees each block just before it is freed.
TEST(DataBuffer, SecureBufferWipesTheBlockItGrowsOutOf) {
    static std::vector<std::string> freed;
    freed.clear();
    DataBuffer::s_beforeFree = [](const unsigned char* p, unsigned n) {
        freed.emplace_back(reinterpret_cast<const char*>(p), n);
    };
    for (bool secure : {true, false}) {
        SCOPED_TRACE(secure ? "secure" : "plain");
        freed.clear();
        DataBuffer db;
        db.setSecure(secure);
        ASSERT_TRUE(db.append("secret-key-bytes", 16));
        const unsigned char* first = db.getData2();
        ASSERT_TRUE(db.append(std::string(4096, 'k').data(), 4096));
        ASSERT_NE(db.getData2(), first) << "the buffer did not move";
        ASSERT_EQ(freed.size(), 1u);
        EXPECT_EQ(freed[0].find("secret"), secure ? std::string::npos : 0u);
        if (secure)
            EXPECT_TRUE(allZero(reinterpret_cast<const unsigned char*>(freed[0].data()),
                                static_cast<unsigned>(freed[0].size())));
    }
    DataBuffer::s_beforeFree = nullptr;
}

TEST(DataBuffer, SecureFlagWipesOnClearAndShorten) {
    DataBuffer db;
    db.setSecure(true);
    db.append("0123456789", 10);
    unsigned char* p = db.getDataRw();
    db.shorten(4);
    EXPECT_EQ(db.getSize(), 6u);
    EXPECT_TRUE(allZero(p + 6, 4));
    db.clear();
    EXPECT_TRUE(allZero(p, 6));

    DataBuffer plain;
    plain.append("0123456789", 10);
    unsigned char* q = plain.getDataRw();
    plain.clear();
    EXPECT_EQ(q[0], '0');  // without the flag, clear only resets the size
}

TEST(DataBuffer, AppendFromItselfSurvivesGrowth) {
    DataBuffer db;
    db.append("abcdefgh", 8);
    for (int i = 0; i < 6; ++i) ASSERT_TRUE(db.append(db.getData2(), db.getSize()));
    ASSERT_EQ(db.getSize(), 8u * 64);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(db.getData2()) + 8 * 63, 8), "abcdefgh");
}

TEST(DataBuffer, ContainsSubstringHonoursStartAndBounds) {
    DataBuffer db;
    db.append("xx-----BEGIN", 12);
    EXPECT_TRUE(db.containsSubstring("BEGIN", 0));
    EXPECT_TRUE(db.containsSubstring("BEGIN", 7));
    EXPECT_FALSE(db.containsSubstring("BEGIN", 8));
    EXPECT_FALSE(db.containsSubstring("BEGINS", 0));  // would run past the end
    EXPECT_FALSE(db.containsSubstring("", 0));
}

TEST(DataBuffer, EncodedForms) {
    DataBuffer db;
    ASSERT_TRUE(db.appendEncoded("3q2+7w==", "base64"));
    ASSERT_TRUE(db.appendEncoded("0001", "hex"));
    StringBuffer hex, b64;
    ASSERT_TRUE(db.encodeDB("hex", hex));
    ASSERT_TRUE(db.encodeDB("base64", b64));
    EXPECT_STREQ(hex.getString(), "DEADBEEF0001");
    EXPECT_STREQ(b64.getString(), "3q2+7wAB");
    EXPECT_FALSE(db.appendEncoded("zz", "hex"));
    EXPECT_FALSE(db.appendEncoded("AA", "rot13"));
    EXPECT_EQ(db.getSize(), 6u);
}

TEST(DataBuffer, FilesRoundTripAndReportFailures) {
    ovtest::TempDir dir;
    std::string path = dir.file("bytes.bin");
    DataBuffer out;
    std::string bytes("a\0b\xff", 4);
    out.append(bytes.data(), 4);
    LogTree log;
    ASSERT_TRUE(out.saveToFileUtf8(path.c_str(), &log));
    DataBuffer in;
    in.append("old", 3);
    ASSERT_TRUE(in.loadFileUtf8(path.c_str(), &log));
    EXPECT_TRUE(in.equals(out));  // replaced, not appended
    EXPECT_FALSE(log.hasErrors());

    DataBuffer missing;
    EXPECT_FALSE(missing.loadFileUtf8(dir.file("nope").c_str(), &log));
    EXPECT_TRUE(log.hasError("Failed to open file for reading."));
    EXPECT_FALSE(out.saveToFileUtf8((dir.path() + "/no/such/dir/f").c_str(), &log));
    EXPECT_FALSE(missing.loadFileUtf8(dir.path().c_str(), nullptr));  // a directory
}

// Only regular files are read, and none larger than the maximum: a FIFO nobody
// writes to must not block the caller, a device must not fill memory. Each
// refusal says why.
TEST(DataBuffer, LoadsOnlyRegularFilesUpToTheMaximum) {
    ovtest::TempDir dir;
    const std::string fifo = dir.file("fifo"), big = dir.file("big");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    {  // sparse: takes no disk space, and is refused by its size before any read
        int fd = open(big.c_str(), O_CREAT | O_WRONLY, 0600);
        ASSERT_GE(fd, 0);
        EXPECT_EQ(ftruncate(fd, static_cast<off_t>(DataBuffer::kMaxLoadSize) + 1), 0);
        close(fd);
    }
    const char* notRegular = "Not a regular file: only regular files are read.";
    struct Case {
        std::string path;
        const char* error;
    } cases[] = {
        {fifo, notRegular},
        {"/dev/null", notRegular},
        {"/dev/zero", notRegular},
        {dir.path(), notRegular},
        {big, "The file is larger than the most that is read."},
    };
    for (const Case& c : cases) {
        DataBuffer db;
        db.append("old", 3);
        LogTree log;
        auto load =
            std::async(std::launch::async, [&] { return db.loadFileUtf8(c.path.c_str(), &log); });
        if (load.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
            ADD_FAILURE() << c.path << ": the read blocked";
            int fd = open(c.path.c_str(), O_WRONLY | O_NONBLOCK);  // lets it end at EOF
            if (fd >= 0) close(fd);
            load.wait();
            continue;
        }
        EXPECT_FALSE(load.get()) << c.path;
        EXPECT_EQ(ovtest::errors(log), c.error) << c.path;
        EXPECT_TRUE(db.isEmpty()) << c.path;
    }
}

// A file is read into a buffer of exactly its size (not the next power of two)
// with a zero byte after the contents, and a secure buffer stays secure.
TEST(DataBuffer, LoadsAFileIntoExactlyItsSize) {
    ovtest::TempDir dir;
    std::string content(100003, '\0');
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 31);
    ASSERT_TRUE(ovtest::writeFile(dir.file("f"), content));
    ASSERT_TRUE(ovtest::writeFile(dir.file("empty"), ""));
    DataBuffer db;
    db.setSecure(true);
    LogTree log;
    ASSERT_TRUE(db.loadFileUtf8(dir.file("f").c_str(), &log));
    EXPECT_EQ(ovtest::bytes(db), content);
    EXPECT_EQ(db.heapUsage(), content.size() + 1);
    EXPECT_EQ(db.getData2()[db.getSize()], 0);
    EXPECT_TRUE(db.isSecure());
    EXPECT_TRUE(db.loadFileUtf8(dir.file("empty").c_str(), &log));
    EXPECT_TRUE(db.isEmpty());
    EXPECT_FALSE(log.hasErrors());
}

}  // namespace
