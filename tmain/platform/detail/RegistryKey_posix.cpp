#include <tmain/platform/detail/RegistryKey.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <tmain/platform/FileOperations.h>
#include <unistd.h>

namespace tarso {
namespace platform {
namespace detail {

// Layout: a key is a directory; a sub-key is a sub-directory with the key's
// name; a value is a regular file named '\\' + the value's name (a key name
// can never hold '\\', so the two never collide) holding its type as 4
// little-endian bytes and then its data. Values are replaced through a
// temporary and a rename, so a reader sees the old or the new value whole.

namespace {
const long ERR_INVALID_DATA = 13;
const long ERR_DISK_FULL = 112;
const long ERR_INVALID_NAME = 123;
const long ERR_NAME_TOO_LONG = 206;
const long ERR_IO = 1117;
const size_t MAX_VALUE_SIZE = 16u << 20;

long fromErrno(int e) {
    switch (e) {
    case ENOENT:
    case ENOTDIR:
        return RK_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
        return RK_ACCESS_DENIED;
    case ENOSPC:
    case EDQUOT:
        return ERR_DISK_FULL;
    case ENAMETOOLONG:
        return ERR_NAME_TOO_LONG;
    default:
        return ERR_IO;
    }
}

std::string xdgBase(int root) {
    if (root == 0) {
        const char* v = getenv("XDG_CONFIG_HOME");
        if (v && v[0] == '/')
            return std::string(v) + "/tmain/registry/HKCU";
        const char* home = getenv("HOME");
        return std::string(home && *home ? home : "") + "/.config/tmain/registry/HKCU";
    }
    const char* v = getenv("XDG_CONFIG_DIRS");
    std::string first = v ? std::string(v, strcspn(v, ":")) : std::string();
    if (first.empty() || first[0] != '/')
        first = "/etc/xdg";
    return first + "/tmain/registry/HKLM";
}

bool isDir(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The entry of dir matching name without regard to case: a directory for a
// key, a '\\'-prefixed regular file for a value. "" when there is none.
std::string findEntry(const std::string& dir, const char* name, bool key) {
    DIR* d = opendir(dir.c_str());
    if (!d)
        return std::string();
    std::string found;
    while (dirent* e = readdir(d)) {
        const char* n = e->d_name;
        if (key ? (strchr(n, '\\') || !strcmp(n, ".") || !strcmp(n, "..") || strcasecmp(n, name))
                : (n[0] != '\\' || strcasecmp(n + 1, name)))
            continue;
        struct stat st;
        std::string path = dir + "/" + n;
        if (stat(path.c_str(), &st) == 0 && (key ? S_ISDIR(st.st_mode) : S_ISREG(st.st_mode))) {
            found = n;
            break;
        }
    }
    closedir(d);
    return found;
}

bool validKeyName(const std::string& n) {
    return !n.empty() && n != "." && n != ".." && n.find('/') == n.npos;
}
bool validValueName(const char* n) {
    return n && !strchr(n, '/') && strlen(n) < 255;
}
} // namespace

long RegistryKey::open(int root, const std::string& path, bool create, bool) {
    close();
    std::string dir = xdgBase(root);
    if (!isDir(dir)) {
        if (!create)
            return RK_NOT_FOUND;
        std::string marker = dir + "/";
        if (!FileOperations::ensurePath(marker.c_str()))
            return fromErrno(errno ? errno : EACCES);
    }
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find('\\', start);
        if (end == std::string::npos)
            end = path.size();
        std::string part = path.substr(start, end - start);
        start = end + 1;
        if (part.empty() && end == path.size())
            break;
        if (!validKeyName(part))
            return ERR_INVALID_NAME;
        std::string existing = findEntry(dir, part.c_str(), true);
        if (existing.empty()) {
            if (!create)
                return RK_NOT_FOUND;
            if (mkdir((dir + "/" + part).c_str(), 0777) != 0 && errno != EEXIST)
                return fromErrno(errno);
            existing = findEntry(dir, part.c_str(), true); // another process may have won with other case
            if (existing.empty())
                return ERR_IO;
        }
        dir += "/" + existing;
    }
    mPath = dir;
    return RK_OK;
}

void RegistryKey::close() {
    mPath.clear();
}

long RegistryKey::query(const char* name, unsigned& type, std::string& data) const {
    if (!validValueName(name))
        return RK_NOT_FOUND;
    std::string file = findEntry(mPath, name, false);
    if (file.empty())
        return RK_NOT_FOUND;
    int fd = ::open((mPath + "/" + file).c_str(), O_RDONLY);
    if (fd < 0)
        return fromErrno(errno);
    std::string bytes;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0 && bytes.size() <= MAX_VALUE_SIZE)
        bytes.append(buf, (size_t)n);
    int e = errno;
    ::close(fd);
    if (n < 0)
        return fromErrno(e);
    if (bytes.size() < 4 || bytes.size() > MAX_VALUE_SIZE + 4)
        return ERR_INVALID_DATA;
    const unsigned char* t = (const unsigned char*)bytes.data();
    type = t[0] | t[1] << 8 | t[2] << 16 | (unsigned)t[3] << 24;
    data = bytes.substr(4);
    return RK_OK;
}

long RegistryKey::set(const char* name, unsigned type, const void* data, unsigned size) {
    if (!validValueName(name))
        return ERR_INVALID_NAME;
    std::string file = findEntry(mPath, name, false);
    std::string target = mPath + "/" + (file.empty() ? std::string("\\") + name : file);
    std::string tmp = mPath + "/.tmp.XXXXXX";
    int fd = mkstemp(&tmp[0]);
    if (fd < 0)
        return fromErrno(errno);
    unsigned char head[4] = {(unsigned char)type, (unsigned char)(type >> 8), (unsigned char)(type >> 16),
                             (unsigned char)(type >> 24)};
    std::string bytes((const char*)head, 4);
    bytes.append((const char*)data, size);
    long err = RK_OK;
    if (fchmod(fd, 0644) != 0)
        err = fromErrno(errno);
    for (size_t done = 0; err == RK_OK && done < bytes.size();) {
        ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno != EINTR)
            err = fromErrno(errno);
        done += n > 0 ? (size_t)n : 0;
    }
    if (err == RK_OK && fsync(fd) != 0)
        err = fromErrno(errno);
    if (::close(fd) != 0 && err == RK_OK)
        err = fromErrno(errno);
    if (err == RK_OK && rename(tmp.c_str(), target.c_str()) != 0)
        err = fromErrno(errno);
    if (err != RK_OK)
        unlink(tmp.c_str());
    return err;
}

long RegistryKey::enumerate(std::vector<std::string>* keys, std::vector<std::string>* values) const {
    DIR* d = opendir(mPath.c_str());
    if (!d)
        return fromErrno(errno);
    std::vector<std::string> k, v;
    while (dirent* e = readdir(d)) {
        const char* n = e->d_name;
        if (!strcmp(n, ".") || !strcmp(n, ".."))
            continue;
        struct stat st;
        if (stat((mPath + "/" + n).c_str(), &st) != 0)
            continue;
        if (S_ISDIR(st.st_mode) && !strchr(n, '\\'))
            k.push_back(n);
        else if (S_ISREG(st.st_mode) && n[0] == '\\')
            v.push_back(n + 1);
    }
    closedir(d);
    std::sort(k.begin(), k.end());
    std::sort(v.begin(), v.end());
    if (keys)
        keys->insert(keys->end(), k.begin(), k.end());
    if (values)
        values->insert(values->end(), v.begin(), v.end());
    return RK_OK;
}

long RegistryKey::removeValue(const char* name) {
    std::string file = validValueName(name) ? findEntry(mPath, name, false) : std::string();
    if (file.empty())
        return RK_NOT_FOUND;
    return unlink((mPath + "/" + file).c_str()) == 0 ? RK_OK : fromErrno(errno);
}

long RegistryKey::removeKey(const char* name) {
    std::string dir = name && validKeyName(name) ? findEntry(mPath, name, true) : std::string();
    if (dir.empty())
        return RK_NOT_FOUND;
    errno = 0;
    if (FileOperations::remove((mPath + "/" + dir).c_str(), FileOperations::REMOVE_RECURSIVE))
        return RK_OK;
    return fromErrno(errno ? errno : EACCES);
}

std::string registryErrorText(long code) {
    switch (code) {
    case RK_OK:
        return "The operation completed successfully.";
    case RK_NOT_FOUND:
        return "The system cannot find the file specified.";
    case RK_ACCESS_DENIED:
        return "Access is denied.";
    case ERR_INVALID_DATA:
        return "The data is invalid.";
    case ERR_DISK_FULL:
        return "There is not enough space on the disk.";
    case ERR_INVALID_NAME:
        return "The filename, directory name, or volume label syntax is incorrect.";
    case ERR_NAME_TOO_LONG:
        return "The filename or extension is too long.";
    default:
        return "The request could not be performed because of an I/O device error.";
    }
}

} // namespace detail
} // namespace platform
} // namespace tarso
