#include <tmain/vfs/ZIPFileSystem.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <ctime>
#include <tmain/foundation/Logger.h>
#include <tmain/platform/FileOperations.h>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/FileNotFoundException.h>
#include <tmain/vfs/ZIPFile.h>
#include <unordered_map>
#include <unzip.h>

namespace tarso {
namespace vfs {

using platform::FileOperations;

const ::core::Type ZIPFileSystem::TYPE("tarso::vfs::ZIPFileSystem", &FileSystem::TYPE);

// The archive is read through minizip's stdio functions, wrapped so that the
// open handle is known here (entry data is fetched with the same handle) and
// so that reads go through buffers of our own: the reader seeks before every
// small read of the directory and of local headers, which would otherwise
// cost a system call each. Two buffers, the older one refilled: opening
// entries one after the other alternates between a directory record and a
// local header, each read in order.
struct ZIPFileSystem::IO {
    static const unsigned BUFFER_SIZE = 32768;
    struct Buffer {
        std::unique_ptr<unsigned char[]> data{new unsigned char[BUFFER_SIZE]};
        ZPOS64_T start = 0, length = 0;
        unsigned long long used = 0;
    };
    zlib_filefunc64_def base;
    zlib_filefunc64_def def;
    voidpf stream = nullptr;
    Buffer buffers[2];
    unsigned hitLast = 0; // the buffer of the last read
    unsigned long long clock = 0;
    ZPOS64_T position = 0;     // where the next read starts
    ZPOS64_T basePosition = 0; // where the stdio stream stands
    ZPOS64_T size = ~0ull;     // measured on the first seek from the end

    IO() {
        fill_fopen64_filefunc(&base);
        def = base;
        def.opaque = this;
        def.zopen64_file = &openFile;
        def.zread_file = &readFile;
        def.zwrite_file = &writeFile;
        def.ztell64_file = &tellFile;
        def.zseek64_file = &seekFile;
        def.zclose_file = &closeFile;
        def.zerror_file = &errorFile;
    }
    static IO* self(voidpf opaque) { return static_cast<IO*>(opaque); }
    static voidpf ZCALLBACK openFile(voidpf opaque, const void* name, int mode) {
        IO* io = self(opaque);
        io->stream = io->base.zopen64_file(io->base.opaque, name, mode);
        if (io->stream)
            setvbuf(static_cast<FILE*>(io->stream), nullptr, _IONBF, 0);
        io->buffers[0].length = io->buffers[1].length = io->position = io->basePosition = 0;
        return io->stream;
    }
    // Reads at `position` from the stdio stream, moving it where needed.
    uLong readBase(void* out, uLong n) {
        if (basePosition != position &&
            base.zseek64_file(base.opaque, stream, position, ZLIB_FILEFUNC_SEEK_SET) != 0)
            return 0;
        uLong got = base.zread_file(base.opaque, stream, out, n);
        basePosition = position + got;
        return got;
    }
    uLong read(void* out, uLong n) {
        Buffer& last = buffers[hitLast];
        if (position >= last.start && position + n <= last.start + last.length) {
            // The reader takes most header fields a byte at a time.
            memcpy(out, last.data.get() + (position - last.start), n);
            position += n;
            return n;
        }
        unsigned char* to = static_cast<unsigned char*>(out);
        uLong done = 0;
        while (done < n) {
            Buffer* hit = nullptr;
            for (unsigned i = 0; i < 2; ++i)
                if (position >= buffers[i].start && position < buffers[i].start + buffers[i].length) {
                    hit = &buffers[i];
                    hitLast = i;
                }
            if (hit) {
                uLong k = (uLong)std::min<ZPOS64_T>(n - done, hit->start + hit->length - position);
                memcpy(to + done, hit->data.get() + (position - hit->start), k);
                hit->used = ++clock;
                done += k;
                position += k;
                continue;
            }
            if (n - done >= BUFFER_SIZE) { // large reads bypass the buffers
                uLong got = readBase(to + done, n - done);
                done += got;
                position += got;
                break;
            }
            hitLast = buffers[0].used <= buffers[1].used ? 0 : 1;
            Buffer& b = buffers[hitLast];
            b.start = position;
            b.length = readBase(b.data.get(), BUFFER_SIZE);
            b.used = ++clock;
            if (b.length == 0)
                break;
        }
        return done;
    }
    static uLong ZCALLBACK readFile(voidpf opaque, voidpf, void* buf, uLong size) {
        return self(opaque)->read(buf, size);
    }
    static uLong ZCALLBACK writeFile(voidpf, voidpf, const void*, uLong) { return 0; }
    static ZPOS64_T ZCALLBACK tellFile(voidpf opaque, voidpf) { return self(opaque)->position; }
    static long ZCALLBACK seekFile(voidpf opaque, voidpf s, ZPOS64_T offset, int origin) {
        IO* io = self(opaque);
        if (origin == ZLIB_FILEFUNC_SEEK_END) {
            if (io->size == ~0ull) {
                if (io->base.zseek64_file(io->base.opaque, s, 0, ZLIB_FILEFUNC_SEEK_END) != 0)
                    return -1;
                io->size = io->basePosition = io->base.ztell64_file(io->base.opaque, s);
            }
            if (offset > io->size)
                return -1;
            io->position = io->size - offset;
        } else {
            io->position = (origin == ZLIB_FILEFUNC_SEEK_CUR ? io->position : 0) + offset;
        }
        return 0;
    }
    static int ZCALLBACK closeFile(voidpf opaque, voidpf s) {
        self(opaque)->stream = nullptr;
        return self(opaque)->base.zclose_file(self(opaque)->base.opaque, s);
    }
    static int ZCALLBACK errorFile(voidpf opaque, voidpf s) {
        return self(opaque)->base.zerror_file(self(opaque)->base.opaque, s);
    }
};

// Lookups by key (the entry name, lower-cased unless case-sensitive) and the
// children of every directory, both built once per open.
struct ZIPFileSystem::Index {
    std::vector<ZIPEntry> entries;
    std::unordered_map<std::string, int> byKey;
    std::unordered_map<std::string, std::vector<int>> children;
};

namespace {

// Splits an entry name or a path into its components. False when the name
// leaves the top: a ".." component, an absolute name or a drive letter
// (`absoluteOk` lets a caller's "/a/b" stand for "a/b").
bool normalizeName(const char* raw, size_t length, bool absoluteOk, std::string& out, bool& endsWithSlash) {
    out.clear();
    endsWithSlash = false;
    if (length == 0)
        return true;
    if (memchr(raw, '\0', length))
        return false;
    bool leading = raw[0] == '/' || raw[0] == '\\';
    if (leading && !absoluteOk)
        return false;
    endsWithSlash = raw[length - 1] == '/' || raw[length - 1] == '\\';
    size_t i = 0;
    bool first = true;
    while (i < length) {
        size_t j = i;
        while (j < length && raw[j] != '/' && raw[j] != '\\')
            ++j;
        size_t n = j - i;
        const char* c = raw + i;
        if (n == 2 && c[0] == '.' && c[1] == '.')
            return false;
        if (first && n == 2 && c[1] == ':' && !leading)
            return false;
        if (n > 0 && !(n == 1 && c[0] == '.')) {
            if (!out.empty())
                out += '/';
            out.append(c, n);
            first = false;
        }
        i = j + 1;
    }
    return true;
}

void lowerCase(std::string& s) {
    for (char& c : s)
        c = (char)tolower((unsigned char)c);
}

unsigned le16(const unsigned char* p) {
    return p[0] | (p[1] << 8);
}
unsigned le32(const unsigned char* p) {
    return p[0] | (p[1] << 8) | (p[2] << 16) | ((unsigned)p[3] << 24);
}
unsigned long long le64(const unsigned char* p) {
    return le32(p) | ((unsigned long long)le32(p + 4) << 32);
}

const unsigned long long MAX32 = 0xFFFFFFFFull;

// Sizes from a Zip64 extra field and times from the extended-timestamp and
// NTFS fields of a central directory record.
void readExtra(const unsigned char* extra, unsigned length, ZIPEntry& e, const unz_file_info64& info) {
    bool haveTimes = false;
    unsigned pos = 0;
    while (pos + 4 <= length) {
        unsigned id = le16(extra + pos), size = le16(extra + pos + 2);
        const unsigned char* d = extra + pos + 4;
        if (pos + 4 + size > length)
            break;
        if (id == 0x0001) {
            unsigned at = 0;
            if (info.uncompressed_size >= MAX32 && at + 8 <= size) {
                e.uncompressedSize = le64(d + at);
                at += 8;
            }
            if (info.compressed_size >= MAX32 && at + 8 <= size)
                e.compressedSize = le64(d + at);
        } else if (id == 0x5455 && size >= 1 && !haveTimes) {
            unsigned flags = d[0], at = 1;
            __int64* fields[3] = {&e.modified, &e.accessed, &e.created};
            for (int k = 0; k < 3; ++k) {
                if (!(flags & (1u << k)))
                    continue;
                if (at + 4 > size)
                    break;
                *fields[k] = (__int64)(int)le32(d + at);
                at += 4;
                if (k == 0)
                    e.accessed = e.created = e.modified;
            }
        } else if (id == 0x000a && size >= 32 && le16(d + 4) == 1 && le16(d + 6) >= 24) {
            // 100-nanosecond ticks since 1601.
            auto unixTime = [](unsigned long long t) { return (__int64)(t / 10000000ull) - 11644473600ll; };
            e.modified = unixTime(le64(d + 8));
            e.accessed = unixTime(le64(d + 16));
            e.created = unixTime(le64(d + 24));
            haveTimes = true;
        }
        pos += 4 + size;
    }
}

// Local DOS times to seconds since 1970. mktime() asks the disk for the time
// zone on every call, so results are kept per hour (zone changes fall on whole
// hours); an archive's entries mostly share a few.
struct DOSTimes {
    std::unordered_map<unsigned, __int64> hours;
    __int64 operator()(const tm_unz& t) {
        unsigned key = ((((unsigned)t.tm_year * 16 + t.tm_mon) * 32 + t.tm_mday) * 32) + t.tm_hour;
        auto found = hours.find(key);
        if (found == hours.end()) {
            struct tm tm = {};
            tm.tm_year = (int)t.tm_year - 1900;
            tm.tm_mon = (int)t.tm_mon;
            tm.tm_mday = (int)t.tm_mday;
            tm.tm_hour = (int)t.tm_hour;
            tm.tm_isdst = -1;
            time_t r = mktime(&tm);
            found = hours.emplace(key, r == (time_t)-1 ? (__int64)0 : (__int64)r).first;
        }
        return found->second ? found->second + t.tm_min * 60 + t.tm_sec : 0;
    }
};

} // namespace

ZIPFileSystem::ZIPFileSystem(const char* path, bool caseSensitive)
    : mCaseSensitive(caseSensitive), mHandle(nullptr), mGlobalBuffer(), mCurrent(nullptr), mLastResult(0) {
    std::string p = path ? path : "";
    if (p.compare(0, 7, "file://") == 0)
        p.erase(0, 7);
    size_t bang = p.find('!');
    if (bang != std::string::npos) {
        mPath = p.substr(0, bang);
        mRoot = p.substr(bang + 1);
        if (!mRoot.empty() && (mRoot[0] == '/' || mRoot[0] == '\\'))
            mRoot.erase(0, 1);
        if (!mRoot.empty() && mRoot.back() != '/' && mRoot.back() != '\\')
            mRoot += '/';
    } else {
        mPath = p;
    }
    bool slash;
    if (!normalizeName(mRoot.data(), mRoot.size(), true, mRootKey, slash))
        mRootKey = "\x01"; // a root that leaves the archive's top matches nothing
    if (!mCaseSensitive)
        lowerCase(mRootKey);
    open();
}

ZIPFileSystem::~ZIPFileSystem() {
    close();
}

bool ZIPFileSystem::open() {
    ::core::Lock lock(mLock);
    if (mHandle)
        return true;
    mIO.reset(new IO());
    mHandle = unzOpen2_64(mPath.c_str(), &mIO->def);
    if (!mHandle) {
        logging::Logger::mROOT_LOGGER.error("ZIPFileSystem::open: Could not open ZIP file '%s'",
                                            mPath.c_str());
        return false;
    }
    try {
        buildIndex();
    } catch (const ::core::Exception& e) {
        logging::Logger::mROOT_LOGGER.error("ZIPFileSystem::open: %s", e.getMessage());
        close();
        return false;
    }
    return true;
}

void ZIPFileSystem::close() {
    ::core::Lock lock(mLock);
    if (mHandle)
        unzClose((unzFile)mHandle);
    mHandle = nullptr;
    mIndex.reset();
    ::core::Lock dirs(mDirLock);
    mDirEntries.clear();
}

bool ZIPFileSystem::isOpen() const {
    ::core::Lock lock(mLock);
    return mHandle != nullptr;
}

void ZIPFileSystem::checkOpen() const {
    if (!mHandle)
        throw stream::IOException("Could not open ZIP file '%s'", mPath.c_str());
}

void ZIPFileSystem::buildIndex() {
    unzFile h = (unzFile)mHandle;
    std::unique_ptr<Index> index(new Index());
    unz_global_info64 gi;
    if (unzGetGlobalInfo64(h, &gi) != UNZ_OK)
        throw stream::IOException("Error listing contents for '%s'", mPath.c_str());
    std::vector<char> name(65536);
    std::vector<unsigned char> extra(65536);
    DOSTimes dosTime;
    // Each record takes at least 46 bytes: the reservation stays within the archive's size.
    ZPOS64_T archiveSize = mIO->size == ~0ull ? 0 : mIO->size;
    index->byKey.reserve((size_t)std::min<ZPOS64_T>(gi.number_entry, archiveSize / 46 + 1));
    // The count comes from the end record: stop there, whatever follows (an
    // archive of exactly 65,535 entries must not be walked past its end), and
    // never reserve from it.
    for (ZPOS64_T i = 0; i < gi.number_entry; ++i) {
        int rc = i == 0 ? unzGoToFirstFile(h) : unzGoToNextFile(h);
        unz_file_info64 info;
        if (rc == UNZ_OK)
            rc = unzGetCurrentFileInfo64(h, &info, name.data(), (uLong)name.size() - 1, extra.data(),
                                         (uLong)extra.size(), nullptr, 0);
        if (rc != UNZ_OK)
            throw stream::IOException("Error listing contents for '%s'", mPath.c_str());
        ZIPEntry e;
        bool dir;
        size_t nameLength = std::min((size_t)info.size_filename, name.size() - 1);
        if (!normalizeName(name.data(), nameLength, false, e.name, dir)) {
            logging::Logger::mROOT_LOGGER.warn(
                "ZIPFileSystem: entry '%.*s' of '%s' leaves the archive; ignored", (int)nameLength,
                name.data(), mPath.c_str());
            continue;
        }
        if (e.name.empty())
            continue;
        e.compressedSize = info.compressed_size;
        e.uncompressedSize = info.uncompressed_size;
        e.crc = (unsigned)info.crc;
        e.method = (int)info.compression_method;
        e.flags = (unsigned)info.flag;
        e.attributes = (unsigned)(info.external_fa & 0xFF);
        unsigned unixMode = (unsigned)(info.external_fa >> 16);
        if (dir || (unixMode & 0170000) == 0040000)
            e.attributes |= ZIPEntry::ATTR_DIRECTORY;
        e.modified = e.accessed = e.created = dosTime(info.tmu_date);
        readExtra(extra.data(), (unsigned)std::min((size_t)info.size_file_extra, extra.size()), e, info);
        e.offset = unzGetOffset64(h);
        std::string key = e.name;
        if (!mCaseSensitive)
            lowerCase(key);
        if (index->byKey.count(key))
            continue; // a repeated name: the first one wins
        e.index = (int)index->entries.size();
        index->byKey.emplace(key, e.index);
        index->entries.push_back(std::move(e));
    }
    mIndex = std::move(index);
    {
        ::core::Lock dirs(mDirLock);
        mDirEntries.clear();
    }
    ensureMissingDirEntry(""); // the top of the archive
    size_t count = mIndex->entries.size();
    for (size_t i = 0; i < count; ++i) {
        std::string name = mIndex->entries[i].name;
        int child = (int)i;
        for (;;) {
            size_t slash = name.rfind('/');
            std::string parent = slash == std::string::npos ? std::string() : name.substr(0, slash);
            std::string key = parent;
            if (!mCaseSensitive)
                lowerCase(key);
            bool known = mIndex->byKey.count(key) != 0;
            int parentIndex = ensureMissingDirEntry(parent);
            (void)parentIndex;
            mIndex->children[key].push_back(child);
            if (known || parent.empty())
                break;
            // A new synthesised directory: it is itself a child of its parent.
            child = mIndex->byKey[key];
            name = parent;
        }
    }
}

int ZIPFileSystem::ensureMissingDirEntry(const std::string& name) {
    std::string key = name;
    if (!mCaseSensitive)
        lowerCase(key);
    auto found = mIndex->byKey.find(key);
    if (found != mIndex->byKey.end())
        return found->second;
    ::core::Lock dirs(mDirLock);
    ZIPEntry e;
    e.name = name;
    e.attributes = ZIPEntry::ATTR_DIRECTORY;
    e.synthetic = true;
    e.index = (int)(mIndex->entries.size() + mDirEntries.size());
    mIndex->byKey.emplace(key, e.index);
    mDirEntries.push_back(e);
    return e.index;
}

unsigned ZIPFileSystem::getEntryCount() const {
    ::core::Lock lock(mLock);
    ::core::Lock dirs(mDirLock);
    return mIndex ? (unsigned)(mIndex->entries.size() + mDirEntries.size()) : 0;
}

bool ZIPFileSystem::keyOf(const char* path, std::string& key) const {
    std::string relative;
    bool slash;
    if (!normalizeName(path ? path : "", path ? strlen(path) : 0, true, relative, slash))
        return false;
    if (!mCaseSensitive)
        lowerCase(relative);
    key = mRootKey;
    if (!key.empty() && !relative.empty())
        key += '/';
    key += relative;
    return true;
}

bool ZIPFileSystem::getEntry(const char* path, void* entry) const {
    std::string key;
    ::core::Lock lock(mLock);
    checkOpen();
    if (!mHandle || !mIndex) {
        mLastResult = ZIP_NOT_OPEN;
        return false;
    }
    if (!keyOf(path, key)) {
        mLastResult = UNZ_END_OF_LIST_OF_FILE;
        return false;
    }
    auto found = mIndex->byKey.find(key);
    if (found == mIndex->byKey.end()) {
        mLastResult = UNZ_END_OF_LIST_OF_FILE;
        return false;
    }
    mLastResult = 0;
    return getEntry(found->second, entry);
}

bool ZIPFileSystem::getEntry(int index, void* entry) const {
    ::core::Lock lock(mLock);
    checkOpen();
    ::core::Lock dirs(mDirLock);
    if (!mIndex || index < 0)
        return false;
    size_t real = mIndex->entries.size();
    if ((size_t)index < real)
        *static_cast<ZIPEntry*>(entry) = mIndex->entries[index];
    else if ((size_t)index - real < mDirEntries.size())
        *static_cast<ZIPEntry*>(entry) = mDirEntries[index - real];
    else
        return false;
    return true;
}

bool ZIPFileSystem::exists(const char* path) const {
    if (!path || !*path)
        return false;
    ZIPEntry e;
    return getEntry(path, &e);
}

bool ZIPFileSystem::isContainer(const char* path) const {
    ZIPEntry e;
    return path && getEntry(path, &e) && e.isDirectory();
}

std::string ZIPFileSystem::getAbsolutePath(const char* path) {
    std::string relative;
    bool slash;
    const char* p = path ? path : "";
    if (!normalizeName(p, strlen(p), true, relative, slash)) {
        relative = p;
        relative.erase(0, relative.find_first_not_of("/\\") == std::string::npos
                              ? relative.size()
                              : relative.find_first_not_of("/\\"));
    }
    if (relative.empty() && !mRoot.empty())
        return mRoot.substr(0, mRoot.size() - 1);
    return mRoot + relative;
}

std::string ZIPFileSystem::getRelativePath(const char* path) {
    if (!path)
        return std::string();
    size_t n = mRoot.size();
    bool inside = strlen(path) >= n;
    for (size_t i = 0; inside && i < n; ++i)
        inside = mCaseSensitive ? path[i] == mRoot[i]
                                : tolower((unsigned char)path[i]) == tolower((unsigned char)mRoot[i]);
    if (!inside)
        return path;
    const char* rest = path + n;
    while (*rest == '/' || *rest == '\\')
        ++rest;
    return std::string("/") + rest;
}

void ZIPFileSystem::fillFile(ZIPFile* file, const char* path, const ZIPEntry& entry) const {
    ZIPFileSystem* self = const_cast<ZIPFileSystem*>(this);
    if (path)
        file->reset(path, &entry, mHandle, self);
    else
        file->reset(&entry, mHandle, self);
}

void ZIPFileSystem::lookup(const char* path, File* file, LookupData*) {
    ZIPFile* zf = dynamic_cast<ZIPFile*>(file);
    if (!zf)
        throw ::core::IllegalArgumentException("File does not belong to a ZIPFileSystem");
    ZIPEntry e;
    if (!getEntry(path, &e)) {
        ZIPEntry none;
        fillFile(zf, path ? path : "", none);
        throw FileNotFoundException(path ? path : "");
    }
    fillFile(zf, path, e);
}

File* ZIPFileSystem::lookup(const char* path, LookupData* data) {
    ::core::SmartPtr<ZIPFile> file(new ZIPFile(this));
    lookup(path, file, data);
    return file.detach();
}

File* ZIPFileSystem::create(const char*, bool) {
    throw ::core::UnsupportedOperationException("ZIPFileSystem::create(...)");
}

void ZIPFileSystem::remove(const char*, unsigned) {
    throw ::core::UnsupportedOperationException("ZIPFileSystem::remove(...)");
}

void ZIPFileSystem::touch(const char*) {
    throw ::core::UnsupportedOperationException("ZIPFileSystem::touch(...)");
}

void ZIPFileSystem::list(const char* path, FileList& out) const {
    list(path, "*", out);
}

void ZIPFileSystem::list(const char* path, const char* pattern, FileList& out) const {
    {
        ::core::Lock lock(mLock);
        checkOpen();
    }
    std::string key;
    if (!keyOf(path, key))
        return;
    std::string pat = pattern ? pattern : "*";
    if (!mCaseSensitive)
        lowerCase(pat);
    std::vector<ZIPEntry> found;
    {
        ::core::Lock lock(mLock);
        if (!mIndex)
            throw stream::IOException("Error listing contents for '%s'", mPath.c_str());
        auto children = mIndex->children.find(key);
        if (children == mIndex->children.end())
            return;
        for (int id : children->second) {
            ZIPEntry e;
            if (!getEntry(id, &e))
                throw stream::IOException("Error listing contents for '%s'", mPath.c_str());
            std::string base = File::getFile(e.name.c_str());
            if (!mCaseSensitive)
                lowerCase(base);
            if (FileOperations::match(pat.c_str(), base.c_str()))
                found.push_back(std::move(e));
        }
    }
    for (const ZIPEntry& e : found) {
        ::core::SmartPtr<ZIPFile> file(new ZIPFile(const_cast<ZIPFileSystem*>(this)));
        fillFile(file, nullptr, e);
        out.add(file);
    }
}

__int64 ZIPFileSystem::getLastModified() const {
    return FileOperations::getLastModTime(mPath.c_str());
}
__int64 ZIPFileSystem::getLastAccessed() const {
    return FileOperations::getLastAccTime(mPath.c_str());
}
__int64 ZIPFileSystem::getCreated() const {
    return FileOperations::getCreationTime(mPath.c_str());
}

void ZIPFileSystem::syncBegin(stream::ZIPInputStream* stream) {
    mLock.enter();
    mCurrent = stream;
}

void ZIPFileSystem::syncEnd() {
    mCurrent = nullptr;
    mLock.leave();
}

unsigned long long ZIPFileSystem::locateData(const ZIPEntry& entry, const void* archive) {
    if (!mHandle || archive != mHandle)
        throw stream::IOException("ZIP file '%s' was closed", mPath.c_str());
    if (entry.index < 0 || entry.synthetic || entry.isDirectory())
        throw stream::IOException("'%s' is not a file of '%s'", entry.name.c_str(), mPath.c_str());
    if (entry.flags & 1)
        throw stream::IOException("Entry '%s' is encrypted", entry.name.c_str());
    if (entry.method != 0 && entry.method != Z_DEFLATED)
        throw stream::IOException("Entry '%s' uses unsupported compression method %d", entry.name.c_str(),
                                  entry.method);
    if (entry.uncompressedSize >= MAX32 || entry.compressedSize >= MAX32)
        throw stream::IOException("Entry '%s' is too large (%llu bytes)", entry.name.c_str(),
                                  std::max(entry.uncompressedSize, entry.compressedSize));
    unzFile h = (unzFile)mHandle;
    int rc = unzSetOffset64(h, entry.offset);
    int method = 0, level = 0;
    // Raw: the reader only checks the local header; the stream inflates.
    if (rc == UNZ_OK)
        rc = unzOpenCurrentFile2(h, &method, &level, 1);
    if (rc != UNZ_OK)
        throw stream::IOException("Entry '%s' of '%s' cannot be opened (%d)", entry.name.c_str(),
                                  mPath.c_str(), rc);
    unsigned long long start = unzGetCurrentFileZStreamPos64(h);
    unzCloseCurrentFile(h);
    return start;
}

unsigned ZIPFileSystem::readRaw(unsigned long long offset, void* buffer, unsigned size) {
    if (!mHandle || !mIO->stream)
        throw stream::IOException("ZIP file '%s' was closed", mPath.c_str());
    mIO->position = offset;
    return (unsigned)mIO->read(buffer, size);
}

} // namespace vfs
} // namespace tarso
