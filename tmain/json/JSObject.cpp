#include <tmain/json/JSObject.h>

#include <atomic>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <jansson.h>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Logger.h>
#include <tmain/stream/InputStream.h>
#include <type_traits>
#include <vector>

namespace tarso {
namespace json {

namespace {

// Jansson's own parser refuses deeper input; the dumper recurses once per
// level without any limit, so deeper trees built by hand are refused before
// they reach it.
const size_t MAX_DUMP_DEPTH = 2048;

// Trees from the parser are at most MAX_DUMP_DEPTH deep, and a new object or
// array is empty: only linking a container under another one can make a tree
// deeper (or cyclic). Until the first such link in the process, dump() skips
// the depth check.
std::atomic<bool> sContainersLinked{false};

void noteLink(const json_t* child) {
    if (json_is_object(child) || json_is_array(child))
        sContainersLinked.store(true, std::memory_order_relaxed);
}

JSObject::Type typeOf(const json_t* v) {
    if (!v)
        return JSObject::T_NULL;
    switch (json_typeof(v)) {
    case JSON_OBJECT:
        return JSObject::T_OBJECT;
    case JSON_ARRAY:
        return JSObject::T_ARRAY;
    case JSON_STRING:
        return JSObject::T_STRING;
    case JSON_INTEGER:
        return JSObject::T_INTEGER;
    case JSON_REAL:
        return JSObject::T_REAL;
    case JSON_TRUE:
    case JSON_FALSE:
        return JSObject::T_BOOL;
    default:
        return JSObject::T_NULL;
    }
}

bool toBool(const json_t* v, bool def) {
    return json_is_boolean(v) ? json_is_true(v) : def;
}

const char* toString(const json_t* v, const char* def) {
    return json_is_string(v) ? json_string_value(v) : def;
}

// A real converted to an integer truncates toward zero; values beyond the
// 64-bit range saturate instead of being undefined.
template <class T> T realTo(double r) {
    if (std::is_floating_point<T>::value) {
        if (std::is_same<T, float>::value && (r > FLT_MAX || r < -FLT_MAX))
            return r > 0 ? (T)HUGE_VALF : (T)-HUGE_VALF;
        return (T)r;
    }
    if (std::is_same<T, unsigned long long>::value && r >= 9223372036854775808.0)
        return r < 18446744073709551616.0 ? (T)(unsigned long long)r : (T)ULLONG_MAX;
    long long t;
    if (r >= 9223372036854775808.0)
        t = LLONG_MAX;
    else if (r < -9223372036854775808.0)
        t = LLONG_MIN;
    else
        t = (long long)r;
    return (T)t;
}

template <class T> T toNumber(const json_t* v, T def) {
    if (json_is_integer(v))
        return (T)json_integer_value(v);
    if (json_is_real(v))
        return realTo<T>(json_real_value(v));
    return def;
}

size_t readFromStream(void* buffer, size_t size, void* data) {
    stream::InputStream* in = static_cast<stream::InputStream*>(data);
    unsigned n = size > 0x10000000u ? 0x10000000u : (unsigned)size;
    return in->read(buffer, 1, n);
}

int appendToString(const char* buffer, size_t size, void* data) {
    static_cast<std::string*>(data)->append(buffer, size);
    return 0;
}

// True when no path from v is longer than MAX_DUMP_DEPTH containers. A cycle
// is an endless path, so it is refused as well. Iterative on purpose.
bool dumpable(json_t* v) {
    if (!json_is_object(v) && !json_is_array(v))
        return true;
    struct Level {
        json_t* value;
        size_t index; // next element of an array
        void* iter;   // next member of an object
    };
    std::vector<Level> stack;
    stack.push_back({v, 0, json_object_iter(v)});
    while (!stack.empty()) {
        Level& top = stack.back();
        json_t* next = nullptr;
        if (json_is_array(top.value)) {
            size_t n = json_array_size(top.value);
            while (top.index < n) {
                json_t* e = json_array_get(top.value, top.index++);
                if (json_is_object(e) || json_is_array(e)) {
                    next = e;
                    break;
                }
            }
        } else {
            while (top.iter) {
                json_t* e = json_object_iter_value(top.iter);
                top.iter = json_object_iter_next(top.value, top.iter);
                if (json_is_object(e) || json_is_array(e)) {
                    next = e;
                    break;
                }
            }
        }
        if (!next) {
            stack.pop_back();
            continue;
        }
        if (stack.size() >= MAX_DUMP_DEPTH)
            return false;
        stack.push_back({next, 0, json_object_iter(next)});
    }
    return true;
}

// Drops one reference. Jansson frees a tree recursively, one stack frame per
// level; a tree built deeper by hand is taken apart here level by level
// instead. A container is emptied only while this walk holds its last
// reference, so values shared with other handles stay whole.
void release(json_t* v) {
    if (!json_is_object(v) && !json_is_array(v)) {
        json_decref(v);
        return;
    }
    std::vector<json_t*> pending{v};
    std::vector<json_t*> children;
    while (!pending.empty()) {
        json_t* c = pending.back();
        pending.pop_back();
        if (c->refcount == 1) {
            children.clear();
            if (json_is_array(c)) {
                for (size_t i = 0, n = json_array_size(c); i < n; ++i)
                    children.push_back(json_array_get(c, i));
            } else if (json_is_object(c)) {
                for (void* it = json_object_iter(c); it; it = json_object_iter_next(c, it))
                    children.push_back(json_object_iter_value(it));
            }
            for (json_t* child : children)
                if (json_is_object(child) || json_is_array(child))
                    pending.push_back(json_incref(child));
            if (json_is_array(c))
                json_array_clear(c);
            else if (json_is_object(c))
                json_object_clear(c);
        }
        json_decref(c);
    }
}

// Moves every cached wrapper of o into out, leaving o's caches empty.
void drainCaches(std::map<std::string, ::core::SmartPtr<JSObject>>& byKey,
                 std::map<unsigned, ::core::SmartPtr<JSObject>>& byIndex,
                 std::vector<::core::SmartPtr<JSObject>>& out) {
    for (auto& e : byKey)
        out.push_back(std::move(e.second));
    for (auto& e : byIndex)
        out.push_back(std::move(e.second));
    byKey.clear();
    byIndex.clear();
}

} // namespace

const char* JSObject::unparse(Type type) {
    static const char* const names[] = {"T_OBJECT", "T_ARRAY", "T_STRING", "T_INTEGER",
                                        "T_REAL",   "T_BOOL",  "T_NULL"};
    return (unsigned)type < 7 ? names[type] : "T_UNKNOWN";
}

JSObject::JSObject(Type type) : mValue(nullptr) {
    if (type == T_OBJECT)
        mValue = json_object();
    else if (type == T_ARRAY)
        mValue = json_array();
    else
        throw ::core::IllegalArgumentException("Invalid JSON type. Expected T_OBJECT or T_ARRAY");
}

JSObject::JSObject(bool value) : mValue(json_boolean(value)) {}
JSObject::JSObject(int value) : mValue(json_integer(value)) {}
JSObject::JSObject(unsigned value) : mValue(json_integer((json_int_t)value)) {}
JSObject::JSObject(long long value) : mValue(json_integer(value)) {}
JSObject::JSObject(unsigned long long value) : mValue(json_integer((json_int_t)value)) {}
JSObject::JSObject(float value) : mValue(json_real(value)) {}
JSObject::JSObject(double value) : mValue(json_real(value)) {}
JSObject::JSObject(const char* value) : mValue(value ? json_string(value) : nullptr) {}

JSObject::JSObject(json_t* value, bool addReference) : mValue(value ? value : json_null()) {
    if (value && addReference)
        json_incref(value);
}

JSObject::JSObject(const JSObject& other)
    : ::core::IRefCount(), mValue(json_incref(other.mValue)), mByKey(other.mByKey), mByIndex(other.mByIndex) {
}

JSObject& JSObject::operator=(const JSObject& other) {
    if (this != &other) {
        json_t* old = mValue;
        mValue = json_incref(other.mValue);
        mByKey = other.mByKey;
        mByIndex = other.mByIndex;
        release(old);
    }
    return *this;
}

// A chain of cached wrappers as deep as the tree would otherwise be
// destroyed recursively: wrappers whose last reference is in a cache are
// emptied one at a time from a list instead.
JSObject::~JSObject() {
    std::vector<::core::SmartPtr<JSObject>> pending;
    drainCaches(mByKey, mByIndex, pending);
    while (!pending.empty()) {
        ::core::SmartPtr<JSObject> last = std::move(pending.back());
        pending.pop_back();
        if (last && last->getRefCount() == 1)
            drainCaches(last->mByKey, last->mByIndex, pending);
    }
    release(mValue);
}

JSObject::Type JSObject::getType() const {
    return typeOf(mValue);
}
JSObject::Type JSObject::getType(const char* key) const {
    json_t* v = memberOf(key);
    return v ? typeOf(v) : T_NULL;
}
bool JSObject::isNull() const {
    return !mValue || json_is_null(mValue);
}
bool JSObject::hasKey(const char* key) const {
    return memberOf(key) != nullptr;
}

unsigned JSObject::getLength() const {
    if (json_is_object(mValue))
        return (unsigned)json_object_size(mValue);
    if (json_is_array(mValue))
        return (unsigned)json_array_size(mValue);
    return 0;
}

json_t* JSObject::memberOf(const char* key) const {
    return key && json_is_object(mValue) ? json_object_get(mValue, key) : nullptr;
}

json_t* JSObject::elementOf(unsigned index) const {
    return json_is_array(mValue) ? json_array_get(mValue, index) : nullptr;
}

// A cached wrapper is reused only while it still holds the member's current
// value, so a change made through another handle sharing this value never
// hands out a stale child.
JSObject* JSObject::child(json_t* value, const char* key) const {
    if (!value)
        return nullptr;
    ::core::SmartPtr<JSObject>& slot = mByKey[key];
    if (!slot || slot->mValue != value)
        slot = new JSObject(value, true);
    return slot.get();
}

JSObject* JSObject::child(json_t* value, unsigned index) const {
    if (!value)
        return nullptr;
    ::core::SmartPtr<JSObject>& slot = mByIndex[index];
    if (!slot || slot->mValue != value)
        slot = new JSObject(value, true);
    return slot.get();
}

JSObject* JSObject::get(const char* key) {
    return child(memberOf(key), key);
}
const JSObject* JSObject::get(const char* key) const {
    return child(memberOf(key), key);
}
JSObject* JSObject::get(unsigned index) {
    return child(elementOf(index), index);
}
const JSObject* JSObject::get(unsigned index) const {
    return child(elementOf(index), index);
}

bool JSObject::getBool(const char* key, bool def) const {
    return toBool(memberOf(key), def);
}
int JSObject::getInt(const char* key, int def) const {
    return toNumber(memberOf(key), def);
}
unsigned JSObject::getUInt(const char* key, unsigned def) const {
    return toNumber(memberOf(key), def);
}
long long JSObject::getLong(const char* key, long long def) const {
    return toNumber(memberOf(key), def);
}
unsigned long long JSObject::getULong(const char* key, unsigned long long def) const {
    return toNumber(memberOf(key), def);
}
float JSObject::getFloat(const char* key, float def) const {
    return toNumber(memberOf(key), def);
}
double JSObject::getDouble(const char* key, double def) const {
    return toNumber(memberOf(key), def);
}
const char* JSObject::getString(const char* key, const char* def) const {
    return toString(memberOf(key), def);
}

bool JSObject::getBool(unsigned index, bool def) const {
    return toBool(elementOf(index), def);
}
int JSObject::getInt(unsigned index, int def) const {
    return toNumber(elementOf(index), def);
}
unsigned JSObject::getUInt(unsigned index, unsigned def) const {
    return toNumber(elementOf(index), def);
}
long long JSObject::getLong(unsigned index, long long def) const {
    return toNumber(elementOf(index), def);
}
unsigned long long JSObject::getULong(unsigned index, unsigned long long def) const {
    return toNumber(elementOf(index), def);
}
float JSObject::getFloat(unsigned index, float def) const {
    return toNumber(elementOf(index), def);
}
double JSObject::getDouble(unsigned index, double def) const {
    return toNumber(elementOf(index), def);
}
const char* JSObject::getString(unsigned index, const char* def) const {
    return toString(elementOf(index), def);
}

bool JSObject::asBool(bool def) const {
    return toBool(mValue, def);
}
int JSObject::asInt(int def) const {
    return toNumber(mValue, def);
}
unsigned JSObject::asUInt(unsigned def) const {
    return toNumber(mValue, def);
}
long long JSObject::asLong(long long def) const {
    return toNumber(mValue, def);
}
unsigned long long JSObject::asULong(unsigned long long def) const {
    return toNumber(mValue, def);
}
float JSObject::asFloat(float def) const {
    return toNumber(mValue, def);
}
double JSObject::asDouble(double def) const {
    return toNumber(mValue, def);
}
const char* JSObject::asString(const char* def) const {
    return toString(mValue, def);
}

// The setters hand over a new reference: Jansson frees it when the value
// cannot be stored (wrong kind, null or invalid key, null value).
void JSObject::setMember(const char* key, json_t* value) {
    if (!key || !json_is_object(mValue)) {
        json_decref(value);
        return;
    }
    mByKey.erase(key);
    json_t* old = json_incref(json_object_get(mValue, key));
    json_object_set_new(mValue, key, value);
    release(old);
}

void JSObject::setElement(unsigned index, json_t* value) {
    if (!json_is_array(mValue)) {
        json_decref(value);
        return;
    }
    if (index < json_array_size(mValue)) {
        mByIndex.erase(index);
        json_t* old = json_incref(json_array_get(mValue, index));
        json_array_set_new(mValue, index, value);
        release(old);
    } else {
        json_array_append_new(mValue, value);
    }
}

void JSObject::appendElement(json_t* value) {
    if (json_is_array(mValue))
        json_array_append_new(mValue, value);
    else
        json_decref(value);
}

void JSObject::set(const char* key, bool value) {
    setMember(key, json_boolean(value));
}
void JSObject::set(const char* key, int value) {
    setMember(key, json_integer(value));
}
void JSObject::set(const char* key, unsigned value) {
    setMember(key, json_integer((json_int_t)value));
}
void JSObject::set(const char* key, long long value) {
    setMember(key, json_integer(value));
}
void JSObject::set(const char* key, unsigned long long value) {
    setMember(key, json_integer((json_int_t)value));
}
void JSObject::set(const char* key, float value) {
    setMember(key, json_real(value));
}
void JSObject::set(const char* key, double value) {
    setMember(key, json_real(value));
}
void JSObject::set(const char* key, const char* value) {
    setMember(key, value ? json_string(value) : nullptr);
}
void JSObject::set(const char* key, JSObject* value) {
    if (!key || !json_is_object(mValue) || (value && !value->mValue))
        return;
    mByKey.erase(key);
    json_t* old = json_incref(json_object_get(mValue, key));
    ::core::SmartPtr<JSObject> keep(value);
    if (value)
        noteLink(value->mValue);
    if (json_object_set_new(mValue, key, value ? json_incref(value->mValue) : json_null()) == 0 && value)
        mByKey[key] = keep;
    release(old);
}

void JSObject::set(unsigned index, bool value) {
    setElement(index, json_boolean(value));
}
void JSObject::set(unsigned index, int value) {
    setElement(index, json_integer(value));
}
void JSObject::set(unsigned index, unsigned value) {
    setElement(index, json_integer((json_int_t)value));
}
void JSObject::set(unsigned index, long long value) {
    setElement(index, json_integer(value));
}
void JSObject::set(unsigned index, unsigned long long value) {
    setElement(index, json_integer((json_int_t)value));
}
void JSObject::set(unsigned index, float value) {
    setElement(index, json_real(value));
}
void JSObject::set(unsigned index, double value) {
    setElement(index, json_real(value));
}
void JSObject::set(unsigned index, const char* value) {
    setElement(index, value ? json_string(value) : nullptr);
}
void JSObject::set(unsigned index, const std::string& value) {
    setElement(index, json_stringn(value.data(), value.size()));
}
void JSObject::set(unsigned index, JSObject* value) {
    if (!json_is_array(mValue) || (value && !value->mValue))
        return;
    ::core::SmartPtr<JSObject> keep(value);
    unsigned n = (unsigned)json_array_size(mValue);
    json_t* v = value ? value->mValue : json_null();
    noteLink(v);
    if (index < n) {
        mByIndex.erase(index);
        json_t* old = json_incref(json_array_get(mValue, index));
        if (json_array_set(mValue, index, v) == 0 && value)
            mByIndex[index] = keep;
        release(old);
    } else if (json_array_append(mValue, v) == 0 && value) {
        mByIndex[n] = keep;
    }
}

void JSObject::append(bool value) {
    appendElement(json_boolean(value));
}
void JSObject::append(int value) {
    appendElement(json_integer(value));
}
void JSObject::append(unsigned value) {
    appendElement(json_integer((json_int_t)value));
}
void JSObject::append(long long value) {
    appendElement(json_integer(value));
}
void JSObject::append(unsigned long long value) {
    appendElement(json_integer((json_int_t)value));
}
void JSObject::append(float value) {
    appendElement(json_real(value));
}
void JSObject::append(double value) {
    appendElement(json_real(value));
}
void JSObject::append(const char* value) {
    appendElement(value ? json_string(value) : nullptr);
}
void JSObject::append(const std::string& value) {
    appendElement(json_stringn(value.data(), value.size()));
}
void JSObject::append(JSObject* value) {
    set((unsigned)UINT_MAX, value);
}

void JSObject::remove(const char* key) {
    if (!key || !json_is_object(mValue))
        return;
    mByKey.erase(key);
    json_t* old = json_incref(json_object_get(mValue, key));
    json_object_del(mValue, key);
    release(old);
}

void JSObject::remove(unsigned index) {
    json_t* old = json_incref(elementOf(index));
    bool removed = old && json_array_remove(mValue, index) == 0;
    release(old);
    if (!removed)
        return;
    // Later elements move down by one; so do their wrappers.
    mByIndex.erase(index);
    for (auto it = mByIndex.upper_bound(index); it != mByIndex.end();) {
        mByIndex[it->first - 1] = it->second;
        it = mByIndex.erase(it);
    }
}

void JSObject::clear() {
    mByKey.clear();
    mByIndex.clear();
    std::vector<json_t*> old;
    if (json_is_object(mValue)) {
        for (void* it = json_object_iter(mValue); it; it = json_object_iter_next(mValue, it))
            old.push_back(json_incref(json_object_iter_value(it)));
        json_object_clear(mValue);
    } else if (json_is_array(mValue)) {
        for (size_t i = 0, n = json_array_size(mValue); i < n; ++i)
            old.push_back(json_incref(json_array_get(mValue, i)));
        json_array_clear(mValue);
    }
    for (json_t* v : old)
        release(v);
}

JSObject::JSIterator JSObject::begin() {
    return JSIterator(json_object_iter(mValue), this);
}

// A handle nobody counts yet (one on the stack) is not counted by the
// iterator either: taking and dropping the only reference would delete it.
JSObject::JSIterator::JSIterator(void* iter, JSObject* object) : mIter(iter), mObject(nullptr) {
    if (object && object->getRefCount() > 0)
        mObject = object;
    mRaw = object;
}

const char* JSObject::JSIterator::getKey() const {
    return mIter ? json_object_iter_key(mIter) : nullptr;
}

JSObject* JSObject::JSIterator::getValue() const {
    return mIter ? mRaw->get(getKey()) : nullptr;
}

JSObject::JSIterator& JSObject::JSIterator::operator++() {
    if (mIter)
        mIter = json_object_iter_next(mRaw->mValue, mIter);
    return *this;
}

JSObject::JSIterator JSObject::JSIterator::operator++(int) {
    JSIterator before(*this);
    ++*this;
    return before;
}

JSObject* JSObject::parse(stream::InputStream* in) {
    JSObject* result = new JSObject(T_OBJECT);
    try {
        parse(in, result);
    } catch (...) {
        delete result;
        throw;
    }
    return result;
}

void JSObject::parse(stream::InputStream* in, JSObject* target) {
    if (!target)
        throw ::core::IllegalArgumentException("NULL JSObject instance");
    if (!in)
        throw ::core::IllegalArgumentException("NULL input stream");
    json_error_t error;
    json_t* value = json_load_callback(readFromStream, in, 0, &error);
    if (!value) {
        logging::Logger::getRootLogger().error("Unable to parse JSON input: %s (%d:%d)", error.text,
                                               error.line, error.column);
        throw ::core::Exception("Unable to parse JSON input: %s", error.text);
    }
    target->mByKey.clear();
    target->mByIndex.clear();
    release(target->mValue);
    target->mValue = value;
}

void JSObject::dump(std::string& out) const {
    if (!mValue)
        throw ::core::IllegalStateException("Unable to dump JSON output: the handle holds no value");
    if (sContainersLinked.load(std::memory_order_relaxed) && !dumpable(mValue))
        throw ::core::Exception("Unable to dump JSON output: nested deeper than %u levels or cyclic",
                                (unsigned)MAX_DUMP_DEPTH);
    // Straight into the caller's string: no intermediate copy of the text.
    size_t before = out.size();
    if (json_dump_callback(mValue, appendToString, &out, JSON_COMPACT | JSON_ENCODE_ANY) != 0) {
        out.resize(before);
        throw ::core::Exception("Unable to dump JSON output");
    }
}

} // namespace json
} // namespace tarso
