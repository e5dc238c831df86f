// ClsJsonObject: a JSON object tree addressed by dotted paths.
#pragma once

#include <memory>

#include "support/base/OrvaneObject.h"

class StringBuffer;
class LogBase;

// One JSON object (the root is always an object). Members keep the order in
// which they were first set, so emitted text follows the order of the updates.
//
// Paths are member names joined by '.', each optionally followed by one or more
// array indexes: "request[0].cert.hashAlg", "m[1][0]". A member name cannot
// contain '.', '[' or ']'; an index is decimal digits only.
//
// Updates create what the path lacks: a missing member becomes an object, or an
// array when an index follows it; an index equal to the array's size appends an
// element. An index beyond that (a gap) fails: filling gaps with nulls would let
// a mistyped index build a request nobody meant, so it is refused. A path that
// runs through a value of the wrong kind (a string where an object or array is
// needed, an object where an index is given) fails and changes nothing. A null
// on the way counts as missing and becomes the container the path needs. The
// final member or element is replaced whatever it held before.
//
// Reference counted (RefCountedObject): createNewCls and Clone are the factories.
// Used by one thread at a time. No operation throws.
class ClsJsonObject : public RefCountedObject {
  public:
    ClsJsonObject();
    ~ClsJsonObject() override;
    ClsJsonObject(const ClsJsonObject&) = delete;
    ClsJsonObject& operator=(const ClsJsonObject&) = delete;

    // A new empty object with no reference counted (the first owner takes it;
    // decRefCount of an uncounted object deletes it too). Null when memory is
    // exhausted.
    static ClsJsonObject* createNewCls();

    // A deep copy that shares nothing with this object. It comes with one
    // reference, which the receiver gives up with decRefCount. Null on failure.
    ClsJsonObject* Clone() const;

    // Number of members of the root object.
    int get_Size() const;

    // Replaces the whole tree with the parsed text, which must be one JSON
    // object. On failure (syntax error, a root that is not an object) logs why
    // and leaves the tree unchanged.
    bool load(const char* json, LogBase& log);

    // Appends the tree as JSON text: compact on one line, or indented by two
    // spaces a level. Invalid UTF-8 in strings is emitted as U+FFFD.
    bool emit(StringBuffer& out, bool compact) const;

    // Set the value at the path (see the class comment), creating what is missing.
    // False, with a logged line naming the path, when the path is malformed or
    // runs through a value of the wrong kind; the tree is then unchanged.
    bool updateString(const char* path, const char* value, LogBase& log);
    bool updateInt(const char* path, long long value, LogBase& log);
    bool updateBool(const char* path, bool value, LogBase& log);
    bool updateNull(const char* path, LogBase& log);
    // Sets an empty object at the path (replacing what was there).
    bool updateNewObject(const char* path, LogBase& log);
    // Sets an empty array at the path (replacing what was there).
    bool updateNewArray(const char* path, LogBase& log);

    // Appends the text of the value at the path: a string as it is, a number or
    // boolean as its JSON text. False (nothing appended) when the path is missing,
    // malformed, or names a null, an object or an array.
    bool stringOf(const char* path, StringBuffer& out) const;
    // Whether a value of any kind (null included) exists at the path.
    bool hasMember(const char* path) const;
    // Whether the value at the path is a string / an object / an array.
    bool isStringAt(const char* path) const;
    bool isObjectAt(const char* path) const;
    // Number of elements of the array at the path; -1 when there is no array there.
    int sizeOfArray(const char* path) const;
    // Number of members of the object at the path (the empty path names the
    // root); -1 when there is no object there.
    int sizeOfObject(const char* path) const;
    // Appends the name of the index-th member of the object at the path (empty
    // path: the root). False when there is no such object or member.
    bool memberNameAt(const char* path, int index, StringBuffer& out) const;

    // Removes every member.
    void clear();

  private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};
