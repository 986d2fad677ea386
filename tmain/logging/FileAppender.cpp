#include <tmain/logging/FileAppender.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <ctime>
#include <tmain/foundation/Exception.h>
#include <tmain/logging/detail/LocalTime.h>
#include <tmain/platform/FileOperations.h>

using tarso::platform::FileOperations;

namespace logging {

namespace {
/// A file's size as the byte count holds it (files past 4 GiB count as full).
unsigned sizeOf(const std::string& path) {
    __int64 size = FileOperations::getSize(path.c_str());
    return size > (__int64)UINT_MAX ? UINT_MAX : (unsigned)size;
}
} // namespace

struct FileAppender::Shared {
    unsigned mDay = 0; ///< YYYYMMDD of the current file, 0 when unknown
    Mode mMode = OVERWRITE;
    FILE* mFile = nullptr;
    std::string mBase, mExtension, mPath;
    unsigned mMaxSize = DEFAULT_MAX_SIZE;
    unsigned mMaxRollingFiles = DEFAULT_MAX_ROLLING_FILES;
    unsigned mBytes = 0;
    /// The day this appender made the current file, 0 when it found it: the
    /// stamp to use where the file system keeps no birth time.
    unsigned mMadeDay = 0;
    core::CriticalSection mLock;

    ~Shared() {
        if (mFile)
            fclose(mFile);
    }
};

FileAppender::FileAppender(const char* fileName, Mode mode, Layout* layout)
    : Appender(layout), mShared(std::make_shared<Shared>()) {
    init(fileName, mode, DEFAULT_MAX_SIZE);
}

FileAppender::FileAppender(const char* fileName, Mode mode, unsigned maxSize, Layout* layout)
    : Appender(layout), mShared(std::make_shared<Shared>()) {
    init(fileName, mode, maxSize);
}

FileAppender::FileAppender(const FileAppender& other) : Appender(other), mShared(other.mShared) {}

FileAppender& FileAppender::operator=(const FileAppender& other) {
    Appender::operator=(other);
    mShared = other.mShared;
    return *this;
}

FileAppender::~FileAppender() {}

void FileAppender::init(const char* fileName, Mode mode, unsigned maxSize) {
    Shared& s = *mShared;
    core::Lock lock(s.mLock);
    setMaxSize(maxSize);
    setMode(mode);
    if (fileName) {
        // The extension is searched in the file name only, so that numbered
        // names stay in the same directory ("logs.d/app" rolls to "logs.d/app-1.log").
        const char* slash = strrchr(fileName, '/');
        if (!slash)
            slash = strrchr(fileName, '\\');
        const char* dot = strrchr(slash ? slash : fileName, '.');
        if (dot) {
            s.mBase.assign(fileName, dot - fileName);
            s.mExtension = dot;
        } else {
            s.mBase = fileName;
            s.mExtension = ".log";
        }
        if (slash)
            FileOperations::ensurePath(fileName);
        if (s.mMode == OVERWRITE)
            overwrite();
        else
            initRoll();
    }
    if (!s.mFile)
        throw core::Exception("(FileAppender::FileAppender) Unable to open log file for output");
}

void FileAppender::close() {
    Shared& s = *mShared;
    if (s.mFile) {
        fclose(s.mFile);
        s.mFile = nullptr;
    }
}

bool FileAppender::open(const char* mode) {
    Shared& s = *mShared;
    bool made = mode[0] == 'w' || !FileOperations::exists(s.mPath.c_str());
    s.mFile = fopen(s.mPath.c_str(), mode);
    if (!s.mFile)
        return false;
    s.mMadeDay = 0;
    if (made) {
        __int64 now = (__int64)time(nullptr);
        // Fails where birth times cannot be set (Linux); mMadeDay stands in then.
        FileOperations::setTime(s.mPath.c_str(), nullptr, &now, nullptr);
        s.mMadeDay = getYYYYMMDD(now);
    }
    return true;
}

unsigned FileAppender::fileDay() const {
    const Shared& s = *mShared;
    if (s.mPath.empty())
        return 0;
    __int64 created = FileOperations::getCreationTime(s.mPath.c_str());
    return created ? getYYYYMMDD(created) : s.mMadeDay;
}

void FileAppender::overwrite() {
    Shared& s = *mShared;
    s.mPath = s.mBase + s.mExtension;
    if (FileOperations::exists(s.mPath.c_str()))
        FileOperations::remove(s.mPath.c_str(), 0);
    open("wb");
}

void FileAppender::initRoll() {
    Shared& s = *mShared;
    s.mPath = s.mBase + s.mExtension;
    if (!open(FileOperations::exists(s.mPath.c_str()) ? "ab" : "wb"))
        return;
    s.mBytes = sizeOf(s.mPath);
    s.mDay = fileDay();
}

void FileAppender::checkRoll(unsigned bytes) {
    Shared& s = *mShared;
    if (s.mMode == ROLL_SIZE) {
        unsigned long long total = (unsigned long long)s.mBytes + bytes;
        s.mBytes = total > UINT_MAX ? UINT_MAX : (unsigned)total;
        if (s.mBytes > s.mMaxSize) {
            fprintf(s.mFile, "Roll (size): %u > %u\n", s.mBytes, s.mMaxSize);
            roll();
        }
    } else if (s.mMode == ROLL_DAILY) {
        unsigned today = getYYYYMMDD((__int64)time(nullptr));
        if (today != s.mDay) {
            fprintf(s.mFile, "Roll (daily): %u != %lu\n", today, (unsigned long)s.mDay);
            roll();
        }
    }
}

void FileAppender::roll() {
    Shared& s = *mShared;
    close();
    const unsigned n = s.mMaxRollingFiles;
    auto numbered = [&s](unsigned i) {
        char suffix[16];
        snprintf(suffix, sizeof(suffix), "-%u", i);
        return s.mBase + suffix + s.mExtension;
    };
    std::string oldest = numbered(n - 1);
    if (FileOperations::exists(oldest.c_str()))
        FileOperations::remove(oldest.c_str(), 0);
    bool moved = true;
    for (unsigned i = n - 1; i >= 1; --i) {
        std::string from = i == 1 ? s.mPath : numbered(i - 1);
        if (FileOperations::exists(from.c_str())) {
            bool ok = FileOperations::rename(from.c_str(), numbered(i).c_str());
            if (i == 1)
                moved = ok;
        }
    }
    // When the current file could not be moved away, keep appending to it
    // rather than truncating lines nobody has kept elsewhere.
    if (open(moved ? "wb" : "ab")) {
        s.mBytes = sizeOf(s.mPath);
        s.mDay = fileDay();
    }
}

unsigned FileAppender::getYYYYMMDD(__int64 time) {
    struct tm t;
    if (!detail::localTime(time, t))
        return 0;
    return ((unsigned)(t.tm_year * 100 + t.tm_mon) + 190001u) * 100u + (unsigned)t.tm_mday;
}

void FileAppender::setMode(Mode mode) {
    Shared& s = *mShared;
    core::Lock lock(s.mLock);
    if (mode == s.mMode)
        return;
    s.mMode = mode;
    if (mode == ROLL_SIZE) {
        s.mBytes = s.mPath.empty() ? 0 : sizeOf(s.mPath);
        s.mDay = 0;
    } else if (mode == ROLL_DAILY) {
        s.mBytes = 0;
        s.mDay = fileDay();
    }
}

FileAppender::Mode FileAppender::getMode() const {
    core::Lock lock(mShared->mLock);
    return mShared->mMode;
}

void FileAppender::setMaxSize(unsigned maxSize) {
    core::Lock lock(mShared->mLock);
    mShared->mMaxSize = std::clamp(maxSize, (unsigned)MIN_MAX_SIZE, (unsigned)MAX_MAX_SIZE);
}

unsigned FileAppender::getMaxSize() const {
    core::Lock lock(mShared->mLock);
    return mShared->mMaxSize;
}

void FileAppender::setMaxRollingFiles(unsigned count) {
    core::Lock lock(mShared->mLock);
    mShared->mMaxRollingFiles = std::clamp(count, (unsigned)MIN_ROLLING_FILES, (unsigned)MAX_ROLLING_FILES);
}

unsigned FileAppender::getMaxRollingFiles() const {
    core::Lock lock(mShared->mLock);
    return mShared->mMaxRollingFiles;
}

std::string FileAppender::getPath() const {
    core::Lock lock(mShared->mLock);
    return mShared->mPath;
}

bool FileAppender::isOpen() const {
    core::Lock lock(mShared->mLock);
    return mShared->mFile != nullptr;
}

void FileAppender::flush() {
    core::Lock lock(mShared->mLock);
    if (mShared->mFile)
        fflush(mShared->mFile);
}

void FileAppender::append(const LogEvent&, const std::string& text) {
    Shared& s = *mShared;
    // The overwrite mode never rolls, but it locks too: a mode switch from
    // another thread may start rolling under a writer.
    core::Lock lock(s.mLock);
    // A roll that could not open the new file is retried with the next line.
    if (!s.mFile) {
        if (s.mPath.empty())
            return;
        initRoll();
        if (!s.mFile)
            return;
    }
    checkRoll((unsigned)(text.size() > UINT_MAX ? UINT_MAX : text.size()));
    if (s.mFile) {
        fwrite(text.data(), 1, text.size(), s.mFile);
        fflush(s.mFile);
    }
}

} // namespace logging
