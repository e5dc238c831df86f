#include "support/base/LogBase.h"

#include <cstdio>

#include "support/base/XString.h"

void LogBase::LogDataSb(const char* name, const StringBuffer& value) {
    logData(name, value.getString());
}

void LogBase::LogDataX(const char* name, XString& value) {
    logData(name, value.getUtf8());
}

void LogBase::LogDataLong(const char* name, long value) {
    char buf[32];
    snprintf(buf, sizeof buf, "%ld", value);
    logData(name, buf);
}

void LogBase::LogDataBool(const char* name, bool value) {
    logData(name, value ? "true" : "false");
}

void LogBase::LogHex(const char* name, unsigned value) {
    char buf[16];
    snprintf(buf, sizeof buf, "%x", value);
    logData(name, buf);
}

void LogBase::LogDataHexBytes(const char* name, const unsigned char* p, unsigned n) {
    StringBuffer sb;
    sb.appendHex(p, n);
    logData(name, sb.getString());
}

LogNull::LogNull(LogBase& parent) {
    verboseLogging = parent.verboseLogging;
    logKeywords.setString(parent.logKeywords);
}

LogTree::LogTree() : m_current(&m_root) {
    m_root.kind = Kind::Context;
}

LogTree::~LogTree() = default;

void LogTree::add(Kind kind, const char* text, const char* value) {
    // Logging must never take the operation down with it: allocation failures
    // here lose the line and nothing else.
    try {
        auto e = std::make_unique<Entry>();
        e->kind = kind;
        e->text = text ? text : "";
        if (value) e->value = value;
        e->parent = m_current;
        Entry* raw = e.get();
        m_current->children.push_back(std::move(e));
        if (kind == Kind::Context) m_current = raw;
    } catch (...) {
    }
}

void LogTree::logError(const char* msg) {
    ++m_numErrors;
    add(Kind::Error, msg, nullptr);
}

void LogTree::logInfo(const char* msg) {
    add(Kind::Info, msg, nullptr);
}

void LogTree::logData(const char* name, const char* value) {
    add(Kind::Data, name, value ? value : "");
}

void LogTree::enterContext(const char* name) {
    add(Kind::Context, name, nullptr);
}

void LogTree::leaveContext() {
    if (m_current != &m_root && m_current->parent) m_current = m_current->parent;
}

namespace {
void render(const LogTree::Entry& e, int depth, StringBuffer& out) {
    for (const auto& c : e.children) {
        for (int i = 0; i < depth; ++i) out.append("  ");
        switch (c->kind) {
            case LogTree::Kind::Context:
                out.append(c->text.c_str());
                out.append(":\n");
                render(*c, depth + 1, out);
                break;
            case LogTree::Kind::Error:
                out.append3("error: ", c->text.c_str(), "\n");
                break;
            case LogTree::Kind::Info:
                out.append(c->text.c_str());
                out.append("\n");
                break;
            case LogTree::Kind::Data:
                out.append3(c->text.c_str(), ": ", c->value.c_str());
                out.append("\n");
                break;
        }
    }
}

const LogTree::Entry* findEntry(const LogTree::Entry& e, LogTree::Kind kind, const char* text) {
    for (const auto& c : e.children) {
        if (c->kind == kind && c->text == text) return c.get();
        if (c->kind == LogTree::Kind::Context) {
            if (const LogTree::Entry* f = findEntry(*c, kind, text)) return f;
        }
    }
    return nullptr;
}

int countEntries(const LogTree::Entry& e) {
    int n = 0;
    for (const auto& c : e.children) n += 1 + countEntries(*c);
    return n;
}
}  // namespace

void LogTree::renderText(StringBuffer& out) const {
    render(m_root, 0, out);
}

std::string LogTree::text() const {
    StringBuffer sb;
    renderText(sb);
    return std::string(sb.getString(), sb.getSize());
}

bool LogTree::hasError(const char* msg) const {
    return msg && findEntry(m_root, Kind::Error, msg) != nullptr;
}

bool LogTree::hasInfo(const char* msg) const {
    return msg && findEntry(m_root, Kind::Info, msg) != nullptr;
}

bool LogTree::hasContext(const char* name) const {
    return name && findEntry(m_root, Kind::Context, name) != nullptr;
}

bool LogTree::findData(const char* name, std::string& value) const {
    const Entry* e = name ? findEntry(m_root, Kind::Data, name) : nullptr;
    if (!e) return false;
    value = e->value;
    return true;
}

int LogTree::numEntries() const {
    return countEntries(m_root);
}

void LogTree::clearLog() {
    m_root.children.clear();
    m_current = &m_root;
    m_numErrors = 0;
}
