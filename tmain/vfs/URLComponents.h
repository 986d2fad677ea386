#pragma once
#include <string>
#include <tmain/Export.h>

namespace tarso {
namespace vfs {

/// A URL split into its parts, the way the platform's URL splitter does it.
/// Every file system that takes URLs splits them here.
struct TMAIN_API URLComponents {
    std::string scheme; ///< "http", "file", ... (as written)
    std::string host;
    unsigned short port; ///< explicit port, else the scheme's default (0 when none)
    std::string user;
    std::string password;
    std::string path;  ///< from the first "/" after the authority, without query
    std::string extra; ///< "?query" and/or "#fragment", with their leading character

    URLComponents() : port(0) {}

    /// Splits url; false when it cannot be split. A plain local path (absolute,
    /// relative or with a drive letter) splits as scheme "file" with the
    /// whole text as path.
    static bool crack(const char* url, URLComponents& out);
};

} // namespace vfs
} // namespace tarso
