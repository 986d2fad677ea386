#include <tmain/vfs/HTTPData.h>

#include <cstring>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/URLEncode.h>

namespace tarso {
namespace vfs {

const ::core::Type HTTPData::TYPE("HTTPData", &LookupData::TYPE);
const ::core::Type FormData::TYPE("FormData", &HTTPData::TYPE);

HTTPData::HTTPData(Method method)
    : mMethod(method), mContent(nullptr), mContentSize(0), mOwnsContent(false) {}

HTTPData::~HTTPData() {
    clearContent();
}

const char* HTTPData::unparse(Method method) {
    switch (method) {
    case http::Request::HEAD:
        return "HEAD";
    case http::Request::GET:
        return "GET";
    case http::Request::PUT:
        return "PUT";
    case http::Request::POST:
        return "POST";
    default:
        throw ::core::IllegalArgumentException("HTTPData: unsupported method %d", (int)method);
    }
}

void HTTPData::clearContent() {
    if (mOwnsContent)
        delete[] static_cast<const char*>(mContent);
    mContent = nullptr;
    mContentSize = 0;
    mOwnsContent = false;
}

void HTTPData::setContent(const void* content, unsigned size, ContentStorage storage) {
    if (storage == CS_COPY && content && size) {
        char* copy = new char[size];
        memcpy(copy, content, size);
        clearContent();
        mContent = copy;
        mOwnsContent = true;
    } else {
        if (content == mContent)
            mOwnsContent = false; // re-setting our own buffer: never free it under the caller
        clearContent();
        mContent = content;
        mOwnsContent = storage == CS_ADOPT && content;
    }
    mContentSize = mContent ? size : 0;
}

const char* HTTPData::getContentType() const {
    return mContent ? "application/octet-stream" : nullptr;
}

const void* HTTPData::_buildContent(unsigned& size) {
    size = mContentSize;
    return mContent;
}

FormData::FormData(Method method) : HTTPData(method) {}
FormData::~FormData() {}

std::vector<std::pair<std::string, std::string>>::const_iterator FormData::find(const char* name) const {
    for (auto it = mFields.begin(); it != mFields.end(); ++it)
        if (name && it->first == name)
            return it;
    return mFields.end();
}

bool FormData::hasField(const char* name) const {
    return find(name) != mFields.end();
}

const char* FormData::getField(const char* name) const {
    auto it = find(name);
    return it == mFields.end() ? nullptr : it->second.c_str();
}

void FormData::setField(const char* name, const char* value) {
    if (!name)
        throw ::core::IllegalArgumentException("FormData: null field name");
    auto it = find(name);
    if (it != mFields.end())
        mFields[it - mFields.begin()].second = value ? value : "";
    else
        mFields.emplace_back(name, value ? value : "");
}

bool FormData::removeField(const char* name) {
    auto it = find(name);
    if (it == mFields.end())
        return false;
    mFields.erase(it);
    return true;
}

void FormData::clearFields() {
    mFields.clear();
}

std::string FormData::encode() const {
    std::string out, part;
    for (const auto& f : mFields) {
        if (!out.empty())
            out += '&';
        text::encodeURL(f.first.c_str(), part);
        out += part;
        out += '=';
        text::encodeURL(f.second.c_str(), part);
        out += part;
    }
    return out;
}

namespace {
bool fieldsInURL(http::Request::Method m) {
    return m == http::Request::GET || m == http::Request::HEAD;
}
} // namespace

const char* FormData::getContentType() const {
    return fieldsInURL(getMethod()) ? nullptr : "application/x-www-form-urlencoded";
}

const void* FormData::_buildContent(unsigned& size) {
    if (fieldsInURL(getMethod())) {
        size = 0;
        return nullptr;
    }
    mBody = encode();
    size = (unsigned)mBody.size();
    return mBody.data();
}

} // namespace vfs
} // namespace tarso
