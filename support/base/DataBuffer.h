// DataBuffer: a growable, owned byte array.
#pragma once

#include <cstddef>

#include "support/base/OrvaneObject.h"

class StringBuffer;
class XString;
class LogBase;

// Owned bytes with a size. When m_secure is set, every byte the buffer ever held
// is overwritten with zeros before its memory is released or moved on growth, so
// private key material never lingers in freed heap.
//
// Operations never throw: an allocation failure makes the appending operation
// return false and leaves the buffer as it was.
class DataBuffer : public NonRefCountedObj {
  public:
    DataBuffer() = default;
    ~DataBuffer() override;
    DataBuffer(const DataBuffer& other);
    DataBuffer& operator=(const DataBuffer& other);

    // A new empty heap buffer owned by the caller; null when memory is exhausted.
    static DataBuffer* createNewObject();

    unsigned getSize() const { return m_size; }
    // The bytes; valid until the next change. Never null (points at a static
    // empty array when the buffer has nothing).
    const unsigned char* getData2() const;
    unsigned char* getDataRw() { return m_data; }
    bool isEmpty() const { return m_size == 0; }

    void setSecure(bool on) { m_secure = on ? 1 : 0; }
    bool isSecure() const { return m_secure != 0; }

    // Size becomes 0; memory is kept (wiped first when secure).
    void clear();
    // Overwrites the bytes with zeros, then size 0.
    void secureClear();
    // Size 0 and memory released (wiped first when secure).
    void clearWithDeallocate();

    bool append(const void* p, unsigned n);
    bool append(const DataBuffer& other);
    bool appendChar(unsigned char c);
    // Replaces the contents with a copy of the bytes.
    bool setData(const void* p, unsigned n);
    // Makes room for at least n bytes in total without changing the size.
    bool ensureCapacity(unsigned n);
    // Writes one zero byte right after the contents (not counted in the size),
    // growing only when the block has no room for it, so the bytes can be read
    // as zero-terminated text without a copy. False when memory runs out.
    bool putZeroAfterContents();
    // Drops the last n bytes (all of them when n >= size).
    void shorten(unsigned n);
    // Exchanges the contents (bytes, size, capacity, secure mark) with other;
    // nothing is copied or allocated.
    void swap(DataBuffer& other) noexcept;

    // Decodes text in the named encoding ("base64", "hex"; "base64url" too) and
    // appends the bytes. False (nothing appended) when the text is not valid in it.
    bool appendEncoded(const char* text, const char* encoding);
    // Appends the bytes, encoded ("base64" without line breaks, "hex" upper case,
    // "hexlower", "base64url"), to out. False for an unknown encoding.
    bool encodeDB(const char* encoding, StringBuffer& out) const;

    // True when the bytes of s occur at or after start.
    bool containsSubstring(const char* s, unsigned start) const;
    bool equals(const DataBuffer& other) const;

    // The most any whole-input read takes (files, standard input in the tool):
    // far above the largest real CRLs (about 100 MB), far below what would let a
    // hostile input exhaust memory.
    static constexpr unsigned kMaxLoadSize = 1u << 30;

    // Replaces the contents with the whole file at the UTF-8 path, read into a
    // buffer of exactly the file's size plus one zero byte after the contents
    // (not counted in the size), so that text files can be read as
    // zero-terminated text without a copy. Only regular files are read (a FIFO,
    // device or directory is refused at once, never waited on), and none larger
    // than kMaxLoadSize. On failure the buffer is emptied and the reason logged
    // when log is not null.
    bool loadFileUtf8(const char* path, LogBase* log);
    bool loadFileX(XString& path, LogBase& log);
    // Writes the bytes to the file, creating or truncating it.
    bool saveToFileUtf8(const char* path, LogBase* log) const;

    size_t heapUsage() const override { return m_capacity; }

    // Public so that callers about to receive secrets can mark the buffer directly.
    unsigned char m_secure = 0;

    // Called with every block just before it goes back to the allocator (on
    // growth and on release), after a secure buffer has wiped it; null unless a
    // test sets it, to see what a block holds at that moment without reading
    // freed memory. Set it only while no other thread uses a DataBuffer.
    static void (*s_beforeFree)(const unsigned char* block, unsigned capacity);

  private:
    bool grow(unsigned needed);
    void releaseMemory();
    // Wipes the block when secure, then frees it.
    void freeBlock(unsigned char* block, unsigned capacity) const;

    unsigned char* m_data = nullptr;
    unsigned m_size = 0;
    unsigned m_capacity = 0;
};
