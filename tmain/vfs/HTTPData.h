#pragma once
#include <memory>
#include <string>
#include <tmain/http/HeaderMap.h>
#include <tmain/http/Request.h>
#include <tmain/vfs/LookupData.h>
#include <utility>
#include <vector>

namespace tarso {
namespace vfs {

/// Request or response headers of the HTTP file system. Response header
/// names are stored in lower case.
class TMAIN_API HTTPHeaderMap : public http::HeaderMap {
public:
    using http::HeaderMap::add;
};

/// Describes the request an HTTPFile's input stream sends instead of a plain
/// GET: method, extra request headers and a body. Passed as the lookup data
/// of HTTPFileSystem::lookup, it makes the lookup send nothing; the request
/// goes out when the file's stream is opened (and again on every seek), and
/// the response headers of the last request are stored here. One stream at a
/// time may use an HTTPData.
class TMAIN_API HTTPData : public LookupData {
    TMAIN_TYPE()
public:
    typedef http::Request::Method Method;

    /// How setContent() keeps the bytes it is given.
    enum ContentStorage {
        CS_COPY = 0,      ///< copies the bytes
        CS_REFERENCE = 1, ///< keeps the pointer; the caller keeps the bytes alive and unchanged
        CS_ADOPT = 2      ///< takes over a buffer made with new[] and deletes it with delete[]
    };

    explicit HTTPData(Method method = http::Request::GET);
    ~HTTPData() override;
    HTTPData(const HTTPData&) = delete;
    HTTPData& operator=(const HTTPData&) = delete;

    Method getMethod() const { return mMethod; }
    void setMethod(Method method) { mMethod = method; }
    /// "HEAD", "GET", "PUT" or "POST"; core::IllegalArgumentException for others.
    static const char* unparse(Method method);

    HTTPHeaderMap& getRequestHeaders() { return mRequestHeaders; }
    const HTTPHeaderMap& getRequestHeaders() const { return mRequestHeaders; }
    /// The headers of the last response (names in lower case).
    HTTPHeaderMap& getResponseHeaders() { return mResponseHeaders; }
    const HTTPHeaderMap& getResponseHeaders() const { return mResponseHeaders; }

    void setContent(const void* content, unsigned size, ContentStorage storage = CS_COPY);
    void clearContent();
    const void* getContent() const { return mContent; }
    unsigned getContentSize() const { return mContentSize; }

    /// The content type sent with the body: "application/octet-stream" when
    /// there is content, null otherwise.
    virtual const char* getContentType() const;
    /// The body to send and its size (null with size 0 for none). The pointer
    /// stays valid until this object changes.
    virtual const void* _buildContent(unsigned& size);

private:
    Method mMethod;
    HTTPHeaderMap mRequestHeaders;
    HTTPHeaderMap mResponseHeaders;
    const void* mContent;
    unsigned mContentSize;
    bool mOwnsContent;
};

/// Named text fields sent as an "application/x-www-form-urlencoded" body
/// (name=value pairs joined by "&", both percent-encoded, in insertion
/// order). The method defaults to POST; with GET or HEAD the fields are sent
/// as the query of the URL instead.
class TMAIN_API FormData : public HTTPData {
    TMAIN_TYPE()
public:
    explicit FormData(Method method = http::Request::POST);
    ~FormData() override;

    bool hasField(const char* name) const;
    /// The field's value, or null.
    const char* getField(const char* name) const;
    /// Sets or replaces a field; a replaced field keeps its place.
    void setField(const char* name, const char* value);
    bool removeField(const char* name);
    void clearFields();
    unsigned getFieldCount() const { return (unsigned)mFields.size(); }

    /// The encoded fields.
    std::string encode() const;
    /// "application/x-www-form-urlencoded" for a body, null when the fields travel in the URL.
    const char* getContentType() const override;
    const void* _buildContent(unsigned& size) override;

private:
    std::vector<std::pair<std::string, std::string>>::const_iterator find(const char* name) const;
    std::vector<std::pair<std::string, std::string>> mFields;
    std::string mBody;
};

} // namespace vfs
} // namespace tarso
