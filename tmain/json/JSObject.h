#pragma once
#include <map>
#include <string>
#include <tmain/Export.h>
#include <tmain/foundation/IRefCount.h>
#include <tmain/foundation/SmartPtr.h>

struct json_t;

namespace tarso {
namespace stream {
class InputStream;
}
namespace json {

/// A counted handle on one JSON value held by Jansson. Children handed out by
/// get() are cached per key and per index and kept alive by their parent.
/// A tree belongs to one thread at a time.
class TMAIN_API JSObject : public ::core::IRefCount {
public:
    // int-based, so that any number may be handed to unparse().
    enum Type : int { T_OBJECT = 0, T_ARRAY, T_STRING, T_INTEGER, T_REAL, T_BOOL, T_NULL, T_UNKNOWN };

    /// Walks the members of an object; at its end at once for anything else.
    class TMAIN_API JSIterator {
    public:
        JSIterator(void* iter, JSObject* object);
        bool isEnd() const { return mIter == nullptr; }
        const char* getKey() const;
        /// The cached child wrapper of the current member.
        JSObject* getValue() const;
        JSIterator& operator++();
        JSIterator operator++(int);

    private:
        void* mIter;
        ::core::SmartPtr<JSObject> mObject;
        JSObject* mRaw;
    };

    /// "T_OBJECT" ... "T_NULL", "T_UNKNOWN" for anything beyond.
    static const char* unparse(Type type);

    /// T_OBJECT or T_ARRAY; any other type throws core::IllegalArgumentException.
    explicit JSObject(Type type);
    explicit JSObject(bool value);
    explicit JSObject(int value);
    explicit JSObject(unsigned value);
    explicit JSObject(long long value);
    /// Stored bit for bit as a signed 64-bit integer.
    explicit JSObject(unsigned long long value);
    explicit JSObject(float value);
    explicit JSObject(double value);
    /// A null or invalid UTF-8 text leaves the handle without a value; such a
    /// handle must not be used.
    explicit JSObject(const char* value);
    /// Shares the value and copies the child caches.
    JSObject(const JSObject& other);
    JSObject& operator=(const JSObject& other);
    ~JSObject() override;

    Type getType() const;
    /// T_NULL when this is no object or the key is absent.
    Type getType(const char* key) const;
    bool isNull() const;
    bool hasKey(const char* key) const;
    /// Members of an object, elements of an array, 0 otherwise.
    unsigned getLength() const;

    /// The cached child wrapper, or null when absent or this is of the wrong
    /// kind. The parent keeps it alive; the caller does not release it.
    JSObject* get(const char* key);
    const JSObject* get(const char* key) const;
    JSObject* get(unsigned index);
    const JSObject* get(unsigned index) const;

    bool getBool(const char* key, bool def = false) const;
    int getInt(const char* key, int def = 0) const;
    unsigned getUInt(const char* key, unsigned def = 0) const;
    long long getLong(const char* key, long long def = 0) const;
    unsigned long long getULong(const char* key, unsigned long long def = 0) const;
    float getFloat(const char* key, float def = 0) const;
    double getDouble(const char* key, double def = 0) const;
    const char* getString(const char* key, const char* def = nullptr) const;

    bool getBool(unsigned index, bool def = false) const;
    int getInt(unsigned index, int def = 0) const;
    unsigned getUInt(unsigned index, unsigned def = 0) const;
    long long getLong(unsigned index, long long def = 0) const;
    unsigned long long getULong(unsigned index, unsigned long long def = 0) const;
    float getFloat(unsigned index, float def = 0) const;
    double getDouble(unsigned index, double def = 0) const;
    const char* getString(unsigned index, const char* def = nullptr) const;

    bool asBool(bool def = false) const;
    int asInt(int def = 0) const;
    unsigned asUInt(unsigned def = 0) const;
    long long asLong(long long def = 0) const;
    unsigned long long asULong(unsigned long long def = 0) const;
    float asFloat(float def = 0) const;
    double asDouble(double def = 0) const;
    const char* asString(const char* def = nullptr) const;

    /// Only on an object: replaces or adds the member. A null or invalid UTF-8
    /// key discards the value.
    void set(const char* key, bool value);
    void set(const char* key, int value);
    void set(const char* key, unsigned value);
    void set(const char* key, long long value);
    void set(const char* key, unsigned long long value);
    void set(const char* key, float value);
    void set(const char* key, double value);
    void set(const char* key, const char* value);
    /// Stores the child's own value (later changes through the child show in
    /// this object) and caches the child under the key.
    void set(const char* key, JSObject* value);

    /// Only on an array: an index below the length replaces, any other appends.
    void set(unsigned index, bool value);
    void set(unsigned index, int value);
    void set(unsigned index, unsigned value);
    void set(unsigned index, long long value);
    void set(unsigned index, unsigned long long value);
    void set(unsigned index, float value);
    void set(unsigned index, double value);
    void set(unsigned index, const char* value);
    void set(unsigned index, const std::string& value);
    void set(unsigned index, JSObject* value);

    /// Only on an array.
    void append(bool value);
    void append(int value);
    void append(unsigned value);
    void append(long long value);
    void append(unsigned long long value);
    void append(float value);
    void append(double value);
    void append(const char* value);
    void append(const std::string& value);
    void append(JSObject* value);

    void remove(const char* key);
    void remove(unsigned index);
    /// Empties both caches, then the object or array.
    void clear();

    JSIterator begin();

    /// Parses a whole object or array from the stream; the caller owns the
    /// result. Failures throw core::Exception "Unable to parse JSON input: %s".
    static JSObject* parse(stream::InputStream* in);

    /// Appends the compact text (no blanks, members in their order, scalars
    /// allowed at the top). A tree nested deeper than 2048 levels or holding
    /// a cycle throws core::Exception instead of exhausting the stack.
    void dump(std::string& out) const;

protected:
    /// Wraps an existing value (null means JSON null), taking a reference when asked.
    JSObject(json_t* value, bool addReference);

private:
    static void parse(stream::InputStream* in, JSObject* target);
    JSObject* child(json_t* value, const char* key) const;
    JSObject* child(json_t* value, unsigned index) const;
    json_t* memberOf(const char* key) const;
    json_t* elementOf(unsigned index) const;
    void setMember(const char* key, json_t* value);
    void setElement(unsigned index, json_t* value);
    void appendElement(json_t* value);

    json_t* mValue;
    mutable std::map<std::string, ::core::SmartPtr<JSObject>> mByKey;
    mutable std::map<unsigned, ::core::SmartPtr<JSObject>> mByIndex;
};

} // namespace json
} // namespace tarso
