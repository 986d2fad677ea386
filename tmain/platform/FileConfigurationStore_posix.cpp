#include <tmain/platform/FileConfigurationStore.h>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace tarso {
namespace platform {

// The temporary sits in the same directory (a rename never crosses file
// systems) and reaches the disk before it replaces the old file; the
// directory is synced afterwards so the rename itself survives a crash.
bool FileConfigurationStore::replaceFile(const std::string& path, const std::string& text) {
    std::string tmp = path + ".tmp.XXXXXX";
    int fd = mkstemp(&tmp[0]);
    if (fd < 0)
        return false;
    bool ok = fchmod(fd, 0644) == 0;
    for (size_t done = 0; ok && done < text.size();) {
        ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        ok = n > 0;
        done += ok ? (size_t)n : 0;
    }
    ok = ok && fsync(fd) == 0;
    ok = close(fd) == 0 && ok;
    ok = ok && rename(tmp.c_str(), path.c_str()) == 0;
    if (!ok) {
        unlink(tmp.c_str());
        return false;
    }
    std::string dir = path.substr(0, path.find_last_of('/') + 1);
    int dfd = open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY);
    if (dfd >= 0) {
        fsync(dfd);
        close(dfd);
    }
    return true;
}

} // namespace platform
} // namespace tarso
