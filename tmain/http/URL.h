#pragma once
#include <string>
#include <tmain/Export.h>

namespace tarso {
namespace http {

/// A URL split by a lenient parser into scheme, host, port, path and query,
/// with a cached text form. Parsing never fails on text: whatever is given is
/// split by the rules of parse(). User name and password are never filled by
/// the parser.
class TMAIN_API URL {
public:
    /// The port of a URL that names none, whatever its scheme.
    static const unsigned DEFAULT_PORT = 80;

    /// An invalid URL: empty fields, port 80.
    URL();
    /// Parses `text`; isValid() tells the outcome (false only for a null text).
    URL(const char* text);
    URL(const URL&) = default;
    URL(URL&&) = default;
    URL& operator=(const URL&) = default;
    URL& operator=(URL&&) = default;

    /// Splits `text` into `url`, replacing everything it held:
    /// - a scheme is the text before the first ":" when a "/" follows that
    ///   colon; otherwise the scheme is "file" for a text starting with "/",
    ///   else "http", and the whole text is parsed as the rest;
    /// - a leading "//" of the rest is skipped;
    /// - a ":" followed by a digit ends the host and starts a decimal port;
    /// - the host otherwise ends at the first "/" (or "?", or the end); the
    ///   path runs from that "/" up to the "?", and is "/" when empty;
    /// - the query is everything after the first "?".
    /// Returns true; a null text gives an invalid URL and false.
    static bool parse(const char* text, URL& url);
    /// A new URL parsed from `text`, owned by the caller.
    static URL* parse(const char* text);

    bool isValid() const { return mValid; }
    const char* getScheme() const { return mScheme.c_str(); }
    const char* getHost() const { return mHost.c_str(); }
    unsigned getPort() const { return mPort; }
    const char* getPath() const { return mPath.c_str(); }
    /// The query, without its "?".
    const char* getQuery() const { return mQuery.c_str(); }
    const char* getUserName() const { return mUserName.c_str(); }
    const char* getPassword() const { return mPassword.c_str(); }

    unsigned getSchemeSize() const { return (unsigned)mScheme.size(); }
    unsigned getHostSize() const { return (unsigned)mHost.size(); }
    unsigned getPathSize() const { return (unsigned)mPath.size(); }
    unsigned getQuerySize() const { return (unsigned)mQuery.size(); }
    unsigned getUserNameSize() const { return (unsigned)mUserName.size(); }
    unsigned getPasswordSize() const { return (unsigned)mPassword.size(); }

    /// Replaces the path (null means empty) and drops the cached text.
    void setPath(const char* path);
    /// Replaces the query (null means empty). The cached text is kept on
    /// purpose: a URL whose text was already built goes on showing the old
    /// query until its path changes.
    void setQuery(const char* query);
    /// Appends `query` to the query, joined by one "&": a null or empty text
    /// changes nothing, a leading "&" of `query` is dropped, and no "&" is
    /// added to an empty query or one already ending with "&". The cached
    /// text is rebuilt on the next toString().
    void appendQuery(const char* query);

    /// scheme "://" host [":" port] path ["?" query]. The port is shown when
    /// it is neither 0 nor 80 and below 65536. Built once and cached.
    const char* toString() const;

private:
    bool mValid;
    std::string mScheme;
    std::string mHost;
    unsigned mPort;
    std::string mPath;
    std::string mQuery;
    std::string mUserName;
    std::string mPassword;
    mutable std::string mText;
};

} // namespace http
} // namespace tarso
