// LogBase: the log sink every operation receives, with scoped contexts.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/base/StringBuffer.h"

class XString;

// The sink. Implementations record (LogTree) or discard (LogNull). A LogBase is
// used by one thread at a time.
class LogBase {
  public:
    LogBase() = default;
    virtual ~LogBase() = default;
    LogBase(const LogBase&) = delete;
    LogBase& operator=(const LogBase&) = delete;

    virtual void logError(const char* msg) = 0;
    virtual void logInfo(const char* msg) = 0;
    virtual void logData(const char* name, const char* value) = 0;
    // Contexts nest; LogContextExitor is the way to open and close them.
    virtual void enterContext(const char* name) = 0;
    virtual void leaveContext() = 0;

    void LogDataSb(const char* name, const StringBuffer& value);
    void LogDataX(const char* name, XString& value);
    void LogDataLong(const char* name, long value);
    void LogDataBool(const char* name, bool value);
    // Writes the number in hexadecimal (lower case, no prefix).
    void LogHex(const char* name, unsigned value);
    // Writes bytes as upper-case hexadecimal text.
    void LogDataHexBytes(const char* name, const unsigned char* p, unsigned n);

    // Optional diagnostic lines are written only when set.
    unsigned char verboseLogging = 0;
    // Keywords that switch on extra logging (searched with containsSubstring).
    StringBuffer logKeywords;
};

// A log that keeps the whole tree of contexts, errors, info lines and named
// values, and renders it as indented text:
//
//   createFromBinary:
//     PEM has multiple certificates.
//     numCerts: 3
//     error: Failed to load PEM
//
// Errors are prefixed with "error: ". Values go on one line as "name: value".
class LogTree : public LogBase {
  public:
    LogTree();
    ~LogTree() override;

    void logError(const char* msg) override;
    void logInfo(const char* msg) override;
    void logData(const char* name, const char* value) override;
    void enterContext(const char* name) override;
    void leaveContext() override;

    enum class Kind { Context, Error, Info, Data };
    struct Entry {
        Kind kind;
        std::string text;                              // message, context name, or value name
        std::string value;                             // Data only
        std::vector<std::unique_ptr<Entry>> children;  // Context only
        Entry* parent = nullptr;
    };

    // Renders the tree as indented text (two spaces a level) into out (appended).
    void renderText(StringBuffer& out) const;
    std::string text() const;

    // Queries for tests and tools.
    bool hasErrors() const { return m_numErrors > 0; }
    int numErrors() const { return m_numErrors; }
    // Whether an error/info line equal to msg exists anywhere in the tree.
    bool hasError(const char* msg) const;
    bool hasInfo(const char* msg) const;
    bool hasContext(const char* name) const;
    // The value of the first named value called name, or false.
    bool findData(const char* name, std::string& value) const;
    // Number of entries of all kinds (contexts included).
    int numEntries() const;
    const Entry& root() const { return m_root; }
    void clearLog();

  private:
    void add(Kind kind, const char* text, const char* value);

    Entry m_root;
    Entry* m_current;
    int m_numErrors = 0;
};

// Discards everything. The parent form copies the parent's verbose flag and
// keywords so that code asking for them behaves alike, but still writes nothing.
class LogNull : public LogBase {
  public:
    LogNull() = default;
    explicit LogNull(LogBase& parent);
    ~LogNull() override = default;

    void logError(const char*) override {}
    void logInfo(const char*) override {}
    void logData(const char*, const char*) override {}
    void enterContext(const char*) override {}
    void leaveContext() override {}
};

// Opens a named context on construction and closes it on destruction.
class LogContextExitor {
  public:
    LogContextExitor(LogBase& log, const char* name) : m_log(log) { m_log.enterContext(name); }
    ~LogContextExitor() { m_log.leaveContext(); }
    LogContextExitor(const LogContextExitor&) = delete;
    LogContextExitor& operator=(const LogContextExitor&) = delete;

  private:
    LogBase& m_log;
};
