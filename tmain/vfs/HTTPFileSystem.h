#pragma once
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <tmain/platform/Platform.h>
#include <tmain/vfs/FileSystem.h>
#include <tmain/vfs/HTTPData.h>
#include <tmain/vfs/HTTPException.h>
#include <tmain/vfs/URLComponents.h>

namespace tarso {
namespace vfs {

namespace detail {
class HTTPConnection;
}

/// A read-only file system over one HTTP or HTTPS server. A lookup sends a
/// HEAD request for the size and the last-modified time; a file's stream
/// sends a GET and seeks by sending it again with a byte range. Bodies sent
/// with "content-encoding: deflate" are inflated, and positions count the
/// inflated bytes.
///
/// Choices of this implementation:
/// - exists(path) answers false for a 404 and throws HTTPException for any
///   other status than 200 or 302.
/// - Lookup data: only HTTPData (and FormData) is supported; with it the
///   lookup sends nothing and the file's stream sends the request it
///   describes. Other lookup data is ignored.
/// - Fast lookup: lookups send nothing; files get size 0 (unknown) and time
///   0, their streams learn the size from the response, and a missing file
///   shows as FileNotFoundException when its stream is opened.
/// - At most getMaxConnections() requests of one file system are in flight
///   at a time (each on a kept-alive connection); a request beyond that waits
///   for one to end, up to the lookup timeout.
/// - The lookup timeout is the connect timeout; the read timeout limits each
///   wait for data in milliseconds. A missing response head after connect
///   plus read timeout counts as a connect timeout.
/// - Proxies of the environment (http_proxy, https_proxy, no_proxy) are used
///   when system proxies are enabled; https uses the system's CA store.
class TMAIN_API HTTPFileSystem : public FileSystem {
    TMAIN_TYPE()
public:
    static unsigned mMAX_CONNECTIONS;
    static bool mDEFAULT_USE_SYSTEM_PROXYES;

    /// Throws HTTPException when the URL cannot be served (bad scheme, set-up failure).
    HTTPFileSystem(const char* url, unsigned lookupTimeout, unsigned readTimeout);
    ~HTTPFileSystem() override;
    HTTPFileSystem(const HTTPFileSystem&) = delete;
    HTTPFileSystem& operator=(const HTTPFileSystem&) = delete;

    /// False on 404; throws HTTPException on other failure statuses.
    bool exists(const char* path) const override;
    /// Sends a HEAD request: false on 404, else size and time (0 when unknown);
    /// throws HTTPException for statuses other than 200, 302 and 404.
    bool exists(const char* path, unsigned& size, __int64& time) const;
    /// Unsupported: "HTTPFileSystem::isContainer(...)".
    bool isContainer(const char* path) const override;
    /// The URL of a path: scheme://host:port + root path + "/" + path.
    std::string getAbsolutePath(const char* path) override;
    /// Unsupported: "HTTPFileSystem::getRelativePath(...)".
    std::string getRelativePath(const char* path) override;
    using FileSystem::lookup;
    /// Re-aims an HTTPFile of this file system (core::IllegalArgumentException for other files).
    void lookup(const char* path, File* file, LookupData* data) override;
    File* lookup(const char* path, LookupData* data) override;
    bool supportsLookupData(const ::core::Type& type) const override;
    File* create(const char* path, bool overwrite) override;
    void createPath(const char* path);
    void remove(const char* path, unsigned flags) override;
    void touch(const char* path) override;
    using FileSystem::list;
    void list(const char* path, FileList& out) const override;
    void list(const char* path, const char* pattern, FileList& out) const override;
    /// The server path every relative path is appended to ("" or "/dir", no trailing "/").
    void setRootPath(const char* path) override;
    const char* getRootPath() const override { return mRootPath.c_str(); }

    const char* getScheme() const { return mURL.scheme.c_str(); }
    const char* getHost() const { return mURL.host.c_str(); }
    unsigned short getPort() const { return mURL.port; }
    /// The path on the server of a relative path (root path + "/" + path).
    std::string getServerPath(const char* path) const;

    void setLookupTimeout(unsigned ms);
    unsigned getLookupTimeout() const { return mLookupTimeout; }
    void setReadTimeout(unsigned ms);
    unsigned getReadTimeout() const { return mReadTimeout; }
    void setUseSystemProxies(bool use);
    bool getUseSystemProxies() const { return mUseSystemProxies; }
    void setFastLookup(bool fast) { mFastLookup = fast; }
    bool getFastLookup() const { return mFastLookup; }
    /// The response headers of the last lookup (a copy: lookups may run on other threads).
    HTTPHeaderMap getHeaders() const;
    /// A header of the last lookup ("" when absent); names are lower case.
    std::string getHeader(const char* name) const;

    /// I/O control: operations capture the handle and fail once it changed.
    int getIOHandle() const { return mIOHandle.load(); }
    bool isValid(int handle) const { return handle == mIOHandle.load() && mIOEnabled.load(); }
    /// Invalidates every operation under way; blocked reads wake up. Any thread.
    void abortIO();
    /// Lookups and opens fail until resumeIO().
    void stopIO();
    void resumeIO();
    bool isIOEnabled() const { return mIOEnabled.load(); }

    static void setMaxConnections(unsigned n);
    static unsigned getMaxConnections() { return mMAX_CONNECTIONS; }
    static void setDefaultUseSystemProxies(bool use) { mDEFAULT_USE_SYSTEM_PROXYES = use; }
    static bool getDefaultUseSystemProxies() { return mDEFAULT_USE_SYSTEM_PROXYES; }

    /// The transport connection (what HTTPFile hands its streams).
    detail::HTTPConnection* getConnection() const { return mConnection.get(); }

protected:
    void afterInit();
    void beforeShutdown();

private:
    void applyMaxConnections();

    URLComponents mURL;
    std::string mRootPath;
    std::unique_ptr<detail::HTTPConnection> mConnection;
    unsigned mLookupTimeout;
    unsigned mReadTimeout;
    std::atomic<int> mIOHandle;
    std::atomic<bool> mIOEnabled;
    bool mUseSystemProxies;
    bool mFastLookup;
    mutable std::mutex mHeadersMutex;
    mutable HTTPHeaderMap mHeaders;

    static std::atomic<int> sInstanceCounter;
};

} // namespace vfs
} // namespace tarso
