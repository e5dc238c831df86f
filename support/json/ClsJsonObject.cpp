#include "support/json/ClsJsonObject.h"

#include <new>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"

using Json = nlohmann::ordered_json;

struct ClsJsonObject::Impl {
    Json root = Json::object();
};

namespace {

// Indexes above this are refused outright: no request description comes near
// it, and it keeps the digit parser far from overflow.
constexpr size_t kMaxIndex = 100000000;

struct Step {
    bool isIndex = false;
    std::string name;
    size_t index = 0;
};

// Splits a path into member and index steps. The empty path gives no steps
// (the root); callers that must name a value reject it.
bool parsePath(const char* path, std::vector<Step>& steps) {
    steps.clear();
    if (!path) return false;
    const char* p = path;
    if (*p == '\0') return true;
    for (;;) {
        Step member;
        while (*p && *p != '.' && *p != '[' && *p != ']') member.name += *p++;
        if (member.name.empty()) return false;
        steps.push_back(std::move(member));
        while (*p == '[') {
            ++p;
            Step idx;
            idx.isIndex = true;
            int digits = 0;
            while (*p >= '0' && *p <= '9') {
                idx.index = idx.index * 10 + static_cast<size_t>(*p - '0');
                if (++digits > 9 || idx.index > kMaxIndex) return false;
                ++p;
            }
            if (digits == 0 || *p != ']') return false;
            ++p;
            steps.push_back(idx);
        }
        if (*p == '\0') return true;
        if (*p != '.') return false;
        ++p;
    }
}

const Json* findConst(const Json& root, const std::vector<Step>& steps) {
    const Json* cur = &root;
    for (const Step& s : steps) {
        if (s.isIndex) {
            if (!cur->is_array() || s.index >= cur->size()) return nullptr;
            cur = &(*cur)[s.index];
        } else {
            if (!cur->is_object()) return nullptr;
            auto it = cur->find(s.name);
            if (it == cur->end()) return nullptr;
            cur = &*it;
        }
    }
    return cur;
}

const Json* lookup(const Json& root, const char* path) {
    std::vector<Step> steps;
    try {
        if (!parsePath(path, steps)) return nullptr;
        return findConst(root, steps);
    } catch (...) {
        return nullptr;
    }
}

enum class PathError { None, Syntax, NotObject, NotArray, Gap };

// Walks the path without changing anything and says whether an update would
// succeed, so that a failing update leaves the tree exactly as it was. A null on
// the way counts as missing: it is replaced by the container the path needs.
PathError checkUpdatePath(const Json& root, const std::vector<Step>& steps) {
    if (steps.empty()) return PathError::Syntax;
    const Json* cur = &root;  // null once the walk has left the existing tree
    for (const Step& s : steps) {
        if (cur && cur->is_null()) cur = nullptr;
        if (s.isIndex) {
            if (!cur) {
                if (s.index != 0) return PathError::Gap;
                continue;
            }
            if (!cur->is_array()) return PathError::NotArray;
            if (s.index > cur->size()) return PathError::Gap;
            cur = s.index < cur->size() ? &(*cur)[s.index] : nullptr;
        } else {
            if (!cur) continue;
            if (!cur->is_object()) return PathError::NotObject;
            auto it = cur->find(s.name);
            cur = it == cur->end() ? nullptr : &*it;
        }
    }
    return PathError::None;
}

// Walks a path that checkUpdatePath accepted, creating what is missing, and
// returns the final slot.
Json* makeSlot(Json& root, const std::vector<Step>& steps) {
    Json* cur = &root;
    for (size_t i = 0; i < steps.size(); ++i) {
        const Step& s = steps[i];
        if (cur->is_null()) *cur = s.isIndex ? Json::array() : Json::object();
        if (s.isIndex) {
            if (s.index == cur->size()) cur->push_back(Json());
            cur = &(*cur)[s.index];
        } else {
            cur = &(*cur)[s.name];
        }
    }
    return cur;
}

}  // namespace

ClsJsonObject::ClsJsonObject() : m_impl(new (std::nothrow) Impl) {}

ClsJsonObject::~ClsJsonObject() = default;

ClsJsonObject* ClsJsonObject::createNewCls() {
    ClsJsonObject* obj = new (std::nothrow) ClsJsonObject();
    if (obj && !obj->m_impl) {
        delete obj;
        return nullptr;
    }
    return obj;
}

ClsJsonObject* ClsJsonObject::Clone() const {
    ClsJsonObject* copy = createNewCls();
    if (!copy) return nullptr;
    try {
        copy->m_impl->root = m_impl->root;
    } catch (...) {
        delete copy;
        return nullptr;
    }
    copy->incRefCount();
    return copy;
}

int ClsJsonObject::get_Size() const {
    return static_cast<int>(m_impl->root.size());
}

void ClsJsonObject::clear() {
    m_impl->root = Json::object();
}

bool ClsJsonObject::load(const char* json, LogBase& log) {
    if (!json) {
        log.logError("No JSON text given.");
        return false;
    }
    try {
        Json parsed = Json::parse(json, nullptr, false);
        if (parsed.is_discarded()) {
            log.logError("Failed to parse the JSON text.");
            return false;
        }
        if (!parsed.is_object()) {
            log.logError("The JSON text is not an object.");
            return false;
        }
        m_impl->root = std::move(parsed);
        return true;
    } catch (...) {
        log.logError("Failed to parse the JSON text.");
        return false;
    }
}

bool ClsJsonObject::emit(StringBuffer& out, bool compact) const {
    try {
        std::string text =
            m_impl->root.dump(compact ? -1 : 2, ' ', false, Json::error_handler_t::replace);
        return out.appendN(text.data(), static_cast<unsigned>(text.size()));
    } catch (...) {
        return false;
    }
}

namespace {

bool updateValue(Json& root, const char* path, Json&& value, LogBase& log) {
    try {
        std::vector<Step> steps;
        PathError err = parsePath(path, steps) ? checkUpdatePath(root, steps) : PathError::Syntax;
        switch (err) {
            case PathError::None:
                *makeSlot(root, steps) = std::move(value);
                return true;
            case PathError::Syntax:
                log.logError("Invalid JSON path.");
                break;
            case PathError::NotObject:
                log.logError("The JSON path runs through a value that is not an object.");
                break;
            case PathError::NotArray:
                log.logError("The JSON path runs through a value that is not an array.");
                break;
            case PathError::Gap:
                log.logError("The JSON array index is beyond the end of the array.");
                break;
        }
        log.logData("path", path ? path : "");
        return false;
    } catch (...) {
        log.logError("Failed to update the JSON object.");
        log.logData("path", path ? path : "");
        return false;
    }
}

}  // namespace

bool ClsJsonObject::updateString(const char* path, const char* value, LogBase& log) {
    try {
        return updateValue(m_impl->root, path, Json(value ? value : ""), log);
    } catch (...) {
        log.logError("Failed to update the JSON object.");
        return false;
    }
}

bool ClsJsonObject::updateInt(const char* path, long long value, LogBase& log) {
    return updateValue(m_impl->root, path, Json(value), log);
}

bool ClsJsonObject::updateBool(const char* path, bool value, LogBase& log) {
    return updateValue(m_impl->root, path, Json(value), log);
}

bool ClsJsonObject::updateNull(const char* path, LogBase& log) {
    return updateValue(m_impl->root, path, Json(), log);
}

bool ClsJsonObject::updateNewObject(const char* path, LogBase& log) {
    return updateValue(m_impl->root, path, Json::object(), log);
}

bool ClsJsonObject::updateNewArray(const char* path, LogBase& log) {
    return updateValue(m_impl->root, path, Json::array(), log);
}

bool ClsJsonObject::stringOf(const char* path, StringBuffer& out) const {
    const Json* v = lookup(m_impl->root, path);
    if (!v) return false;
    try {
        if (v->is_string()) {
            const std::string& s = v->get_ref<const std::string&>();
            return out.appendN(s.data(), static_cast<unsigned>(s.size()));
        }
        if (v->is_number() || v->is_boolean()) {
            std::string s = v->dump();
            return out.appendN(s.data(), static_cast<unsigned>(s.size()));
        }
    } catch (...) {
    }
    return false;
}

bool ClsJsonObject::hasMember(const char* path) const {
    return path && *path && lookup(m_impl->root, path) != nullptr;
}

bool ClsJsonObject::isStringAt(const char* path) const {
    const Json* v = lookup(m_impl->root, path);
    return v && v->is_string();
}

bool ClsJsonObject::isObjectAt(const char* path) const {
    const Json* v = lookup(m_impl->root, path);
    return v && v->is_object();
}

int ClsJsonObject::sizeOfArray(const char* path) const {
    const Json* v = lookup(m_impl->root, path);
    return v && v->is_array() ? static_cast<int>(v->size()) : -1;
}

int ClsJsonObject::sizeOfObject(const char* path) const {
    const Json* v = lookup(m_impl->root, path);
    return v && v->is_object() ? static_cast<int>(v->size()) : -1;
}

bool ClsJsonObject::memberNameAt(const char* path, int index, StringBuffer& out) const {
    const Json* v = lookup(m_impl->root, path);
    if (!v || !v->is_object() || index < 0 || static_cast<size_t>(index) >= v->size()) {
        return false;
    }
    try {
        auto it = v->items().begin();
        std::advance(it, index);
        const std::string& key = it.key();
        return out.appendN(key.data(), static_cast<unsigned>(key.size()));
    } catch (...) {
        return false;
    }
}
