#pragma once
#include <map>
#include <string>
#include <tmain/Export.h>
#include <vector>

namespace tarso {
namespace http {

/// Multi-valued HTTP headers. Names are compared byte for byte (the client
/// lower-cases names read from the wire) and iterated in byte order; the
/// values of a name keep their insertion order. Copies are deep.
class TMAIN_API HeaderMap {
public:
    /// Each name owns a heap list of its values (never empty while listed).
    typedef std::map<std::string, std::vector<std::string>*, std::less<>> Map;
    typedef Map::const_iterator const_iterator;

    HeaderMap();
    HeaderMap(const HeaderMap& other);
    HeaderMap(HeaderMap&& other) noexcept;
    HeaderMap& operator=(const HeaderMap& other);
    HeaderMap& operator=(HeaderMap&& other) noexcept;
    ~HeaderMap();

    /// Appends a value to the name's list. A null name throws
    /// core::IllegalArgumentException; a null value is stored as "".
    void add(const char* name, const char* value);
    /// Appends every value of every name of `other` (`other` may be this map).
    void add(const HeaderMap& other);
    /// Replaces every value of the name by `value`.
    void set(const char* name, const char* value);
    /// Removes the name with all its values; false when it was not there.
    bool remove(const char* name);
    /// Removes everything.
    void clear();

    /// The index-th value of the name, or null.
    const char* get(const char* name, unsigned index = 0) const;
    /// The number of values of the name (0 when absent).
    unsigned getCount(const char* name) const;
    /// The values of the name, or null when absent.
    const std::vector<std::string>* getValues(const char* name) const;
    bool has(const char* name) const;
    /// The number of names.
    unsigned size() const { return (unsigned)mHeaders.size(); }
    bool empty() const { return mHeaders.empty(); }

    /// Names in byte order; `->first` is the name, `->second` its values.
    const_iterator begin() const { return mHeaders.begin(); }
    const_iterator end() const { return mHeaders.end(); }

    /// Every value as a line "name: value\r\n", names in byte order, values
    /// in insertion order. Rebuilt only after the map changed.
    const std::string& getRawHeaders() const;

private:
    std::vector<std::string>& valuesFor(const char* name);
    void release();

    mutable bool mDirty;
    mutable std::string mRawHeaders;
    Map mHeaders;
};

} // namespace http
} // namespace tarso
