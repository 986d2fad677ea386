#include <tmain/http/HeaderMap.h>

#include <memory>
#include <tmain/foundation/Exception.h>

namespace tarso {
namespace http {

HeaderMap::HeaderMap() : mDirty(false) {}

HeaderMap::HeaderMap(const HeaderMap& other) : mDirty(true) {
    add(other);
}

HeaderMap::HeaderMap(HeaderMap&& other) noexcept : mDirty(true), mHeaders(std::move(other.mHeaders)) {
    other.mHeaders.clear();
    other.mDirty = true;
}

HeaderMap& HeaderMap::operator=(const HeaderMap& other) {
    if (this != &other) {
        HeaderMap copy(other);
        *this = std::move(copy);
    }
    return *this;
}

HeaderMap& HeaderMap::operator=(HeaderMap&& other) noexcept {
    if (this != &other) {
        release();
        mHeaders = std::move(other.mHeaders);
        other.mHeaders.clear();
        other.mDirty = true;
        mDirty = true;
    }
    return *this;
}

HeaderMap::~HeaderMap() {
    release();
}

void HeaderMap::release() {
    for (auto& entry : mHeaders)
        delete entry.second;
    mHeaders.clear();
}

std::vector<std::string>& HeaderMap::valuesFor(const char* name) {
    if (!name)
        throw ::core::IllegalArgumentException("HeaderMap: NULL header name");
    auto it = mHeaders.find(name);
    if (it == mHeaders.end()) {
        std::unique_ptr<std::vector<std::string>> values(new std::vector<std::string>());
        it = mHeaders.emplace(name, values.get()).first;
        values.release();
    }
    return *it->second;
}

void HeaderMap::add(const char* name, const char* value) {
    std::vector<std::string>& values = valuesFor(name);
    values.emplace_back(value ? value : "");
    mDirty = true;
}

void HeaderMap::add(const HeaderMap& other) {
    if (&other == this) {
        HeaderMap copy(other);
        add(copy);
        return;
    }
    for (auto& entry : other.mHeaders) {
        std::vector<std::string>& values = valuesFor(entry.first.c_str());
        values.insert(values.end(), entry.second->begin(), entry.second->end());
    }
    mDirty = true;
}

void HeaderMap::set(const char* name, const char* value) {
    std::vector<std::string>& values = valuesFor(name);
    values.assign(1, value ? value : "");
    mDirty = true;
}

bool HeaderMap::remove(const char* name) {
    if (!name)
        return false;
    auto it = mHeaders.find(name);
    if (it == mHeaders.end())
        return false;
    delete it->second;
    mHeaders.erase(it);
    mDirty = true;
    return true;
}

void HeaderMap::clear() {
    release();
    mDirty = true;
}

const std::vector<std::string>* HeaderMap::getValues(const char* name) const {
    if (!name)
        return nullptr;
    auto it = mHeaders.find(name);
    return it == mHeaders.end() ? nullptr : it->second;
}

const char* HeaderMap::get(const char* name, unsigned index) const {
    const std::vector<std::string>* values = getValues(name);
    return values && index < values->size() ? (*values)[index].c_str() : nullptr;
}

unsigned HeaderMap::getCount(const char* name) const {
    const std::vector<std::string>* values = getValues(name);
    return values ? (unsigned)values->size() : 0;
}

bool HeaderMap::has(const char* name) const {
    return getValues(name) != nullptr;
}

const std::string& HeaderMap::getRawHeaders() const {
    if (mDirty) {
        std::string raw;
        for (auto& entry : mHeaders)
            for (auto& value : *entry.second) {
                raw += entry.first;
                raw += ": ";
                raw += value;
                raw += "\r\n";
            }
        mRawHeaders.swap(raw);
        mDirty = false;
    }
    return mRawHeaders;
}

} // namespace http
} // namespace tarso
