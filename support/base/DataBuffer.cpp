#include "support/base/DataBuffer.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "support/base/ContentCoding.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"
#include "support/base/ovstr.h"

namespace {
const unsigned char kEmpty[1] = {0};

// Blocks from this size on are offered to the kernel for transparent huge
// pages. Filling fresh memory costs mostly page faults, one per 4 KiB page:
// loading a 38 MB CRL (one copy) took 25 ms in plain malloc'd memory and 4 ms
// in advised memory (bench BM_CrlLoad1M_Ours). The kernel backs every whole 2 MiB-aligned range
// of an advised mapping with a huge page, so the block itself need not be
// aligned: measured alike, and without the up to 2 MiB of slack per block
// that an aligned allocation keeps. Smaller blocks would gain nothing.
constexpr size_t kHugePage = 2u * 1024 * 1024;
constexpr size_t kHugeFrom = 4 * kHugePage;
constexpr uintptr_t kPageMask = 4095;

unsigned char* allocBlock(size_t n) {
    void* p = malloc(n);
    if (p && n >= kHugeFrom) {
        // Advice only: where huge pages are off or exhausted, ordinary pages serve.
        uintptr_t start = reinterpret_cast<uintptr_t>(p);
        uintptr_t page = (start + kPageMask) & ~kPageMask;
        (void)madvise(reinterpret_cast<void*>(page), n - (page - start), MADV_HUGEPAGE);
    }
    return static_cast<unsigned char*>(p);
}
}  // namespace

DataBuffer::~DataBuffer() {
    releaseMemory();
}

DataBuffer::DataBuffer(const DataBuffer& other) : NonRefCountedObj(), m_secure(other.m_secure) {
    append(other);
}

DataBuffer& DataBuffer::operator=(const DataBuffer& other) {
    if (this != &other) {
        m_secure = m_secure || other.m_secure;
        setData(other.m_data, other.m_size);
    }
    return *this;
}

DataBuffer* DataBuffer::createNewObject() {
    return new (std::nothrow) DataBuffer();
}

const unsigned char* DataBuffer::getData2() const {
    return m_data ? m_data : kEmpty;
}

void (*DataBuffer::s_beforeFree)(const unsigned char*, unsigned) = nullptr;

void DataBuffer::freeBlock(unsigned char* block, unsigned capacity) const {
    if (m_secure) ovSecureZero(block, capacity);
    if (s_beforeFree) s_beforeFree(block, capacity);
    free(block);
}

void DataBuffer::releaseMemory() {
    if (m_data) freeBlock(m_data, m_capacity);
    m_data = nullptr;
    m_size = 0;
    m_capacity = 0;
}

void DataBuffer::clear() {
    if (m_secure && m_data) ovSecureZero(m_data, m_size);
    m_size = 0;
}

void DataBuffer::secureClear() {
    if (m_data) ovSecureZero(m_data, m_capacity);
    m_size = 0;
}

void DataBuffer::clearWithDeallocate() {
    releaseMemory();
}

bool DataBuffer::grow(unsigned needed) {
    if (needed <= m_capacity) return true;
    // A first fill gets exactly what it asks for (most buffers are filled once,
    // e.g. a certificate's DER); later growth doubles.
    size_t cap = m_capacity ? m_capacity : 32;
    if (m_capacity == 0 && needed > cap) cap = needed;
    while (cap < needed) cap *= 2;
    if (cap > 0xFFFFFFFFu) cap = needed;
    // Never realloc: a secure buffer must wipe the old block, which realloc would
    // free behind our back.
    unsigned char* p = allocBlock(cap);
    if (!p) return false;
    if (m_data) {
        if (m_size) memcpy(p, m_data, m_size);
        freeBlock(m_data, m_capacity);
    }
    m_data = p;
    m_capacity = static_cast<unsigned>(cap);
    return true;
}

bool DataBuffer::ensureCapacity(unsigned n) {
    return grow(n);
}

bool DataBuffer::putZeroAfterContents() {
    if (m_size == 0xFFFFFFFFu || !grow(m_size + 1)) return false;
    m_data[m_size] = 0;
    return true;
}

bool DataBuffer::append(const void* p, unsigned n) {
    if (n == 0) return true;
    if (!p) return false;
    if (n > 0xFFFFFFFFu - m_size) return false;
    // The source may lie inside our own block; remember its offset across growth.
    const unsigned char* src = static_cast<const unsigned char*>(p);
    bool inside = m_data && src >= m_data && src < m_data + m_capacity;
    size_t off = inside ? static_cast<size_t>(src - m_data) : 0;
    if (!grow(m_size + n)) return false;
    if (inside) src = m_data + off;
    memmove(m_data + m_size, src, n);
    m_size += n;
    return true;
}

bool DataBuffer::append(const DataBuffer& other) {
    return append(other.m_data, other.m_size);
}

bool DataBuffer::appendChar(unsigned char c) {
    return append(&c, 1);
}

bool DataBuffer::setData(const void* p, unsigned n) {
    if (p && m_data && static_cast<const unsigned char*>(p) == m_data && n <= m_size) {
        m_size = n;
        return true;
    }
    DataBuffer tmp;
    tmp.m_secure = m_secure;
    if (!tmp.append(p, n)) return false;
    clear();
    return append(tmp);
}

void DataBuffer::shorten(unsigned n) {
    unsigned drop = n > m_size ? m_size : n;
    if (m_secure && drop) ovSecureZero(m_data + m_size - drop, drop);
    m_size -= drop;
}

bool DataBuffer::appendEncoded(const char* text, const char* encoding) {
    if (!text || !encoding) return false;
    unsigned n = ovStrLen(text);
    StringBuffer enc(encoding);
    enc.toLowerCase();
    if (enc.equals("base64")) return ContentCoding::decodeBase64ToDb(text, n, *this);
    if (enc.equals("base64url")) return ContentCoding::decodeBase64UrlToDb(text, n, *this);
    if (enc.equals("hex") || enc.equals("hexlower") || enc.equals("hex_lower"))
        return ContentCoding::decodeHex(text, n, *this);
    return false;
}

bool DataBuffer::encodeDB(const char* encoding, StringBuffer& out) const {
    if (!encoding) return false;
    StringBuffer enc(encoding);
    enc.toLowerCase();
    if (enc.equals("base64")) return ContentCoding::encodeBase64_noCrLf(m_data, m_size, out);
    if (enc.equals("base64url")) return ContentCoding::encodeBase64Url(m_data, m_size, out);
    if (enc.equals("hex")) return ContentCoding::encodeHex(m_data, m_size, out, false);
    if (enc.equals("hexlower") || enc.equals("hex_lower"))
        return ContentCoding::encodeHex(m_data, m_size, out, true);
    return false;
}

bool DataBuffer::containsSubstring(const char* s, unsigned start) const {
    unsigned n = ovStrLen(s);
    if (n == 0 || start >= m_size || n > m_size - start) return false;
    const unsigned char* end = m_data + m_size - n;
    for (const unsigned char* p = m_data + start; p <= end; ++p) {
        p = static_cast<const unsigned char*>(memchr(p, s[0], static_cast<size_t>(end - p) + 1));
        if (!p) return false;
        if (memcmp(p, s, n) == 0) return true;
    }
    return false;
}

bool DataBuffer::equals(const DataBuffer& other) const {
    return m_size == other.m_size && (m_size == 0 || memcmp(m_data, other.m_data, m_size) == 0);
}

bool DataBuffer::loadFileUtf8(const char* path, LogBase* log) {
    clear();
    if (!path || !*path) {
        if (log) log->logError("No file path given.");
        return false;
    }
    // Non-blocking, so that opening a FIFO that nobody writes to returns at
    // once; the type check below then refuses it. It changes nothing for a
    // regular file.
    int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        if (log) {
            log->logError("Failed to open file for reading.");
            log->logData("path", path);
            log->logData("reason", strerror(errno));
        }
        return false;
    }
    struct FdCloser {
        int fd;
        ~FdCloser() { close(fd); }
    } closer{fd};

    // Only a regular file has a size known in advance; a device or a pipe could
    // feed us without end, and a FIFO would make us wait for a writer.
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        if (log) {
            log->logError("Not a regular file: only regular files are read.");
            log->logData("path", path);
        }
        return false;
    }
    if (st.st_size > static_cast<off_t>(kMaxLoadSize)) {
        if (log) {
            log->logError("The file is larger than the most that is read.");
            log->logData("path", path);
            log->LogDataLong("size", static_cast<long>(st.st_size));
            log->LogDataLong("maxSize", static_cast<long>(kMaxLoadSize));
        }
        return false;
    }

    // A buffer of exactly the file's size, plus the zero byte after it:
    // reading in pieces into a growing buffer would hold up to twice the file
    // while it grows.
    const unsigned want = static_cast<unsigned>(st.st_size);
    if (m_capacity < want + 1) {
        releaseMemory();
        if (!grow(want + 1)) {
            if (log) log->logError("Out of memory reading file.");
            return false;
        }
    }
    // A file that shrinks while read gives what it holds; one that grows gives
    // the size it had when we looked.
    while (m_size < want) {
        ssize_t n = read(fd, m_data + m_size, want - m_size);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            if (log) {
                log->logError("Failed to read file.");
                log->logData("path", path);
                log->logData("reason", strerror(errno));
            }
            clear();
            return false;
        }
        if (n == 0) break;
        m_size += static_cast<unsigned>(n);
    }
    m_data[m_size] = 0;
    return true;
}

bool DataBuffer::loadFileX(XString& path, LogBase& log) {
    return loadFileUtf8(path.getUtf8(), &log);
}

bool DataBuffer::saveToFileUtf8(const char* path, LogBase* log) const {
    if (!path || !*path) {
        if (log) log->logError("No file path given.");
        return false;
    }
    FILE* f = fopen(path, "wb");
    if (!f) {
        if (log) {
            log->logError("Failed to open file for writing.");
            log->logData("path", path);
            log->logData("reason", strerror(errno));
        }
        return false;
    }
    bool ok = m_size == 0 || fwrite(m_data, 1, m_size, f) == m_size;
    if (fclose(f) != 0) ok = false;
    if (!ok && log) {
        log->logError("Failed to write file.");
        log->logData("path", path);
    }
    return ok;
}

void DataBuffer::swap(DataBuffer& other) noexcept {
    std::swap(m_data, other.m_data);
    std::swap(m_size, other.m_size);
    std::swap(m_capacity, other.m_capacity);
    std::swap(m_secure, other.m_secure);
}
