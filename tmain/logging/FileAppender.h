#pragma once
#include <cstdio>
#include <memory>
#include <string>
#include <tmain/Export.h>
#include <tmain/foundation/CriticalSection.h>
#include <tmain/foundation/Logger.h>
#include <tmain/platform/Platform.h>

namespace logging {

/// A log destination writing formatted lines to a file through the C
/// runtime, flushed after every line. The file rolls by size or by calendar
/// day, keeping numbered predecessors: with five rolling files "app.log" is
/// the current one, "app-1.log" the newest old one and "app-4.log" the
/// oldest. In the overwrite mode there is one file, truncated at start.
///
/// Any thread may log; in the rolling modes the roll check, the write and the
/// roll are one step under the appender's lock, so no line is lost or split.
/// Copies share the open file, its lock and its settings.
class TMAIN_API FileAppender : public Appender {
public:
    enum Mode { ROLL_SIZE = 0, ROLL_DAILY = 1, OVERWRITE = 255 };

    static const unsigned DEFAULT_MAX_SIZE = 0x400000;
    static const unsigned MIN_MAX_SIZE = 0x100000;
    static const unsigned MAX_MAX_SIZE = 0x80000000u;
    static const unsigned DEFAULT_MAX_ROLLING_FILES = 5;
    static const unsigned MIN_ROLLING_FILES = 2;
    static const unsigned MAX_ROLLING_FILES = 5;

    /// Opens (and in the rolling modes appends to) fileName; a name without a
    /// '.' gets ".log"; missing directories are created. Throws
    /// core::Exception when no file could be opened, also for a null name.
    /// The appender owns the layout (null: SimpleLayout).
    FileAppender(const char* fileName, Mode mode, Layout* layout);
    FileAppender(const char* fileName, Mode mode, unsigned maxSize, Layout* layout);
    FileAppender(const FileAppender& other);
    FileAppender& operator=(const FileAppender& other);
    ~FileAppender() override;

    /// Switching to ROLL_SIZE takes the current file's size as the byte
    /// count; switching to ROLL_DAILY takes the day the file was made.
    void setMode(Mode mode);
    Mode getMode() const;
    /// Clamped to MIN_MAX_SIZE .. MAX_MAX_SIZE.
    void setMaxSize(unsigned maxSize);
    unsigned getMaxSize() const;
    /// Clamped to MIN_ROLLING_FILES .. MAX_ROLLING_FILES (the current file included).
    void setMaxRollingFiles(unsigned count);
    unsigned getMaxRollingFiles() const;
    /// The current file's path (base name + extension), empty when none.
    std::string getPath() const;
    bool isOpen() const;

    /// Flushes the file when open.
    virtual void flush();

protected:
    void append(const LogEvent& event, const std::string& formatted) override;

    void init(const char* fileName, Mode mode, unsigned maxSize);
    void close();
    /// Rolls when the next `bytes` would pass the size limit, or when the day
    /// changed; the roll line ends the old file.
    void checkRoll(unsigned bytes);
    void overwrite();
    void initRoll();
    void roll();
    /// YYYYMMDD of t in local time, 0 when it cannot be converted.
    static unsigned getYYYYMMDD(__int64 time);

private:
    struct Shared;
    /// Opens the current path with `mode` ("wb" or "ab"); a new file gets
    /// today's day stamp even where the file system keeps no birth time.
    bool open(const char* mode);
    unsigned fileDay() const;

    std::shared_ptr<Shared> mShared;
};

} // namespace logging
