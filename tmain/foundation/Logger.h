#pragma once
#include <cstdarg>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <tmain/Export.h>
#include <tmain/foundation/SmartPtr.h>
#include <vector>

namespace core {
class Exception;
}

namespace logging {

enum Level {
    LEVEL_DEBUG = 0,
    LEVEL_INFO = 1,
    LEVEL_WARN = 2,
    LEVEL_ERROR = 3,
    LEVEL_FATAL = 4,
    LEVEL_OFF = 5
};

/// "DEBUG", "INFO", "WARN", "ERROR", "FATAL" or "OFF".
TMAIN_API const char* levelName(Level level);
/// Parses a level name (any case) or its number; false when not recognised.
TMAIN_API bool parseLevel(const char* text, Level& out);

/// One logged event as appenders receive it.
struct LogEvent {
    Level level;
    const char* loggerName;
    std::string message; ///< the formatted message, with a cause's message appended
    time_t time;
    std::string threadName;
};

/// Turns an event into the text an appender writes.
class TMAIN_API Layout {
public:
    virtual ~Layout();
    virtual std::string format(const LogEvent& event) const = 0;
    /// Replaces out's text with the formatted event. Override it where the
    /// text can be built in place: appenders reuse one buffer per thread.
    virtual void formatTo(const LogEvent& event, std::string& out) const;
};

/// "2026-11-21 05:44:06 WARN  [IOThread] message\n"
class TMAIN_API SimpleLayout : public Layout {
public:
    std::string format(const LogEvent& event) const override;
    void formatTo(const LogEvent& event, std::string& out) const override;
};

/// Base of log destinations. Constructed with a layout it owns; receives every
/// event at or above its threshold. Copies share the layout.
class TMAIN_API Appender : public core::IRefCount {
public:
    explicit Appender(Layout* layout);
    ~Appender() override;

    void setThreshold(Level level) { mThreshold = level; }
    Level getThreshold() const { return mThreshold; }
    const Layout* getLayout() const { return mLayout.get(); }

    /// Formats with the layout and writes, when the event passes the threshold.
    void doAppend(const LogEvent& event);

protected:
    virtual void append(const LogEvent& event, const std::string& formatted) = 0;

private:
    std::shared_ptr<const Layout> mLayout;
    Level mThreshold;
};

/// Writes to standard error. The root logger starts with one; its threshold is
/// WARN unless the environment variable TMAIN_LOG_LEVEL names another level.
class TMAIN_API ConsoleAppender : public Appender {
public:
    ConsoleAppender(Layout* layout = nullptr);

protected:
    void append(const LogEvent& event, const std::string& formatted) override;
};

/// A named logger with appenders. The process-wide root logger is
/// Logger::mROOT_LOGGER. Thread-safe. Each line carries the name the
/// thread has at that moment (core::Thread keeps it per thread, so asking is
/// cheap).
class TMAIN_API Logger {
public:
    explicit Logger(const char* name);
    ~Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    static Logger& mROOT_LOGGER;
    /// The root logger; safe to call at any time, also during static initialisation.
    static Logger& getRootLogger();

    void debug(const char* format, ...) TMAIN_PRINTF(2, 3);
    void info(const char* format, ...) TMAIN_PRINTF(2, 3);
    void warn(const char* format, ...) TMAIN_PRINTF(2, 3);
    void warn(const char* format, const core::Exception* cause, ...);
    void error(const char* format, ...) TMAIN_PRINTF(2, 3);
    void error(const char* format, const core::Exception* cause, ...);
    void fatal(const char* format, ...) TMAIN_PRINTF(2, 3);

    void log(Level level, const core::Exception* cause, const char* format, va_list args);

    void addAppender(Appender* appender);
    void removeAppender(Appender* appender);
    void removeAllAppenders();
    /// The appender to standard error the root logger starts with (null after removal).
    ConsoleAppender* getConsoleAppender() const;

    /// Events below this level are dropped before formatting.
    void setLevel(Level level) { mLevel = level; }
    Level getLevel() const { return mLevel; }
    bool isEnabled(Level level) const;
    const char* getName() const { return mName.c_str(); }

private:
    std::string mName;
    Level mLevel;
    typedef std::vector<core::SmartPtr<Appender>> AppenderList;
    /// The appenders as an immutable list, replaced whole on every change:
    /// a message takes a reference to the current list instead of a copy.
    std::shared_ptr<const AppenderList> appenders() const;

    mutable std::mutex mMutex;
    std::shared_ptr<const AppenderList> mAppenders;
};

} // namespace logging
