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

// secureClear wipes in place and keeps the memory (so we may look at it); a
// secure buffer also wipes what shorten and clear drop, and the block it grows
// out of before that goes back to the allocator (the hook sees each block just
// before it is freed); a plain one only resets the size.
TEST(DataBuffer, SecureBuffersWipeWhatTheyDrop) {
    static std::vector<std::string> freed;
    DataBuffer::s_beforeFree = [](const unsigned char* p, unsigned n) {
        freed.emplace_back(reinterpret_cast<const char*>(p), n);
    };
    for (bool secure : {true, false}) {
        SCOPED_TRACE(secure);
        DataBuffer db;
        db.setSecure(secure);
        db.append("0123456789", 10);
        unsigned char* p = db.getDataRw();
        db.shorten(4);
        EXPECT_EQ(db.getSize(), 6u);
        EXPECT_EQ(allZero(p + 6, 4), secure);
        db.clear();
        EXPECT_EQ(allZero(p, 6), secure);
        db.append("secret-key-bytes", 16);
        p = db.getDataRw();
        db.secureClear();
        EXPECT_EQ(db.getSize(), 0u);
        EXPECT_EQ(db.getDataRw(), p);
        EXPECT_TRUE(allZero(p, 16));

        ASSERT_TRUE(db.append("secret-key-bytes", 16));
        freed.clear();
        ASSERT_TRUE(db.append(std::string(4096, 'k').data(), 4096));
        ASSERT_NE(db.getData2(), p) << "the buffer did not move";
        ASSERT_EQ(freed.size(), 1u);
        EXPECT_EQ(freed[0].find("secret"), secure ? std::string::npos : 0u);
        EXPECT_EQ(freed[0].find_first_not_of('\0') == std::string::npos, secure);
    }
    DataBuffer::s_beforeFree = nullptr;
}

TEST(DataBuffer, AppendFromItselfSurvivesGrowth) {
    DataBuffer db;
    db.append("abcdefgh", 8);
    for (int i = 0; i < 6; ++i) ASSERT_TRUE(db.append(db.getData2(), db.getSize()));
    ASSERT_EQ(db.getSize(), 8u * 64);
    EXPECT_EQ(ovtest::bytes(db).substr(8 * 63), "abcdefgh");
}

TEST(DataBuffer, ContainsSubstringHonoursStartAndBounds) {
    DataBuffer db;
    db.append("xx-----BEGIN", 12);
    EXPECT_TRUE(db.containsSubstring("BEGIN", 0) && db.containsSubstring("BEGIN", 7));
    EXPECT_FALSE(db.containsSubstring("BEGIN", 8));
    EXPECT_FALSE(db.containsSubstring("BEGINS", 0));  // would run past the end
    EXPECT_FALSE(db.containsSubstring("", 0));
}

TEST(DataBuffer, EncodedForms) {
    DataBuffer db;
    ASSERT_TRUE(db.appendEncoded("3q2+7w==", "base64") && db.appendEncoded("0001", "hex"));
    StringBuffer hex, b64;
    ASSERT_TRUE(db.encodeDB("hex", hex) && db.encodeDB("base64", b64));
    EXPECT_STREQ(hex.getString(), "DEADBEEF0001");
    EXPECT_STREQ(b64.getString(), "3q2+7wAB");
    EXPECT_FALSE(db.appendEncoded("zz", "hex"));
    EXPECT_FALSE(db.appendEncoded("AA", "rot13"));
    EXPECT_EQ(db.getSize(), 6u);
}

// A saved file loads back whole into a buffer of exactly its size (not the
// next power of two) with a zero byte after the contents, replacing what the
// buffer held, and a secure buffer stays secure.
TEST(DataBuffer, FilesRoundTripIntoExactlyTheirSize) {
    ovtest::TempDir dir;
    std::string content(100003, '\0');
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 31);
    DataBuffer out, db;
    out.append(content.data(), static_cast<unsigned>(content.size()));
    db.setSecure(true);
    db.append("old", 3);
    LogTree log;
    ASSERT_TRUE(out.saveToFileUtf8(dir.file("f").c_str(), &log));
    ASSERT_TRUE(ovtest::writeFile(dir.file("empty"), ""));
    ASSERT_TRUE(db.loadFileUtf8(dir.file("f").c_str(), &log));
    EXPECT_EQ(ovtest::bytes(db), content);
    EXPECT_EQ(db.heapUsage(), content.size() + 1);
    EXPECT_EQ(db.getData2()[db.getSize()], 0);
    EXPECT_TRUE(db.isSecure());
    EXPECT_TRUE(db.loadFileUtf8(dir.file("empty").c_str(), &log));
    EXPECT_TRUE(db.isEmpty());
    EXPECT_FALSE(log.hasErrors());
    EXPECT_FALSE(out.saveToFileUtf8(dir.file("no/such/dir/f").c_str(), &log));
    EXPECT_FALSE(DataBuffer().loadFileUtf8(dir.path().c_str(), nullptr));  // no log to write to
}

// Only existing regular files are read, and none larger than the maximum: a
// FIFO nobody writes to must not block the caller, a device must not fill
// memory. Each refusal says why.
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
    const std::pair<std::string, const char*> cases[] = {
        {fifo, notRegular},
        {"/dev/null", notRegular},
        {"/dev/zero", notRegular},
        {dir.path(), notRegular},
        {big, "The file is larger than the most that is read."},
        {dir.file("nope"), "Failed to open file for reading."},
    };
    for (const auto& c : cases) {
        DataBuffer db;
        db.append("old", 3);
        LogTree log;
        auto load =
            std::async(std::launch::async, [&] { return db.loadFileUtf8(c.first.c_str(), &log); });
        if (load.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
            ADD_FAILURE() << c.first << ": the read blocked";
            int fd = open(c.first.c_str(), O_WRONLY | O_NONBLOCK);  // lets it end at EOF
            if (fd >= 0) close(fd);
            load.wait();
            continue;
        }
        EXPECT_FALSE(load.get()) << c.first;
        EXPECT_EQ(ovtest::errors(log), c.second) << c.first;
        EXPECT_TRUE(db.isEmpty()) << c.first;
    }
}

}  // namespace
