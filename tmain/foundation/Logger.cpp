#include <tmain/foundation/Logger.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Thread.h>

namespace logging {

const char* levelName(Level level) {
    switch (level) {
    case LEVEL_DEBUG:
        return "DEBUG";
    case LEVEL_INFO:
        return "INFO";
    case LEVEL_WARN:
        return "WARN";
    case LEVEL_ERROR:
        return "ERROR";
    case LEVEL_FATAL:
        return "FATAL";
    default:
        return "OFF";
    }
}

bool parseLevel(const char* text, Level& out) {
    if (!text || !*text)
        return false;
    for (int l = LEVEL_DEBUG; l <= LEVEL_OFF; ++l) {
        const char* n = levelName((Level)l);
        size_t i = 0;
        while (n[i] && text[i] && (text[i] | 0x20) == (n[i] | 0x20))
            ++i;
        if (!n[i] && !text[i]) {
            out = (Level)l;
            return true;
        }
    }
    if (text[0] >= '0' && text[0] <= '5' && !text[1]) {
        out = (Level)(text[0] - '0');
        return true;
    }
    return false;
}

Layout::~Layout() {}

std::string SimpleLayout::format(const LogEvent& e) const {
    char stamp[32] = "";
    struct tm tmv;
#if defined(_WIN32)
    localtime_s(&tmv, &e.time);
#else
    localtime_r(&e.time, &tmv);
#endif
    strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &tmv);
    std::string out;
    out.reserve(e.message.size() + 48);
    out += stamp;
    out += ' ';
    char lvl[8];
    snprintf(lvl, sizeof(lvl), "%-5s", levelName(e.level));
    out += lvl;
    if (!e.threadName.empty()) {
        out += " [";
        out += e.threadName;
        out += ']';
    }
    out += ' ';
    out += e.message;
    out += '\n';
    return out;
}

Appender::Appender(Layout* layout) : mLayout(layout ? layout : new SimpleLayout()), mThreshold(LEVEL_DEBUG) {}

Appender::~Appender() {}

void Appender::doAppend(const LogEvent& event) {
    if (event.level < mThreshold || mThreshold == LEVEL_OFF)
        return;
    append(event, mLayout->format(event));
}

ConsoleAppender::ConsoleAppender(Layout* layout) : Appender(layout) {
    setThreshold(LEVEL_WARN);
    Level env;
    if (parseLevel(getenv("TMAIN_LOG_LEVEL"), env))
        setThreshold(env);
}

void ConsoleAppender::append(const LogEvent&, const std::string& formatted) {
    fwrite(formatted.data(), 1, formatted.size(), stderr);
    fflush(stderr);
}

Logger::Logger(const char* name) : mName(name ? name : ""), mLevel(LEVEL_DEBUG) {}

Logger::~Logger() {}

Logger& Logger::getRootLogger() {
    // Never destroyed: threads and static destructors may still log at exit.
    static Logger* root = [] {
        Logger* l = new Logger("root");
        l->addAppender(new ConsoleAppender());
        return l;
    }();
    return *root;
}

Logger& Logger::mROOT_LOGGER = Logger::getRootLogger();

bool Logger::isEnabled(Level level) const {
    if (level < mLevel)
        return false;
    std::lock_guard<std::mutex> g(mMutex);
    for (const auto& a : mAppenders)
        if (level >= a->getThreshold() && a->getThreshold() != LEVEL_OFF)
            return true;
    return false;
}

void Logger::log(Level level, const core::Exception* cause, const char* format, va_list args) {
    if (!isEnabled(level))
        return;
    LogEvent e;
    e.level = level;
    e.loggerName = mName.c_str();
    e.message = core::formatMessage(format ? format : "", args);
    // The cause's message goes after the event's own, with its whole chain.
    for (const core::Exception* c = cause; c; c = c->getCause()) {
        e.message += c == cause ? ": " : " <- ";
        e.message += c->getType().getName();
        e.message += ": ";
        e.message += c->getMessage();
    }
    e.time = time(nullptr);
    e.threadName = core::Thread::getCurrentThreadName();
    std::vector<core::SmartPtr<Appender>> appenders;
    {
        std::lock_guard<std::mutex> g(mMutex);
        appenders = mAppenders;
    }
    for (auto& a : appenders)
        a->doAppend(e);
}

#define TMAIN_LOG_BODY(level, cause)                                                                         \
    va_list args;                                                                                            \
    va_start(args, format);                                                                                  \
    log(level, cause, format, args);                                                                         \
    va_end(args)

void Logger::debug(const char* format, ...) {
    TMAIN_LOG_BODY(LEVEL_DEBUG, nullptr);
}
void Logger::info(const char* format, ...) {
    TMAIN_LOG_BODY(LEVEL_INFO, nullptr);
}
void Logger::warn(const char* format, ...) {
    TMAIN_LOG_BODY(LEVEL_WARN, nullptr);
}
void Logger::error(const char* format, ...) {
    TMAIN_LOG_BODY(LEVEL_ERROR, nullptr);
}
void Logger::fatal(const char* format, ...) {
    TMAIN_LOG_BODY(LEVEL_FATAL, nullptr);
}

// The cause follows the format, so the variadic arguments start after it.
void Logger::warn(const char* format, const core::Exception* cause, ...) {
    va_list args;
    va_start(args, cause);
    log(LEVEL_WARN, cause, format, args);
    va_end(args);
}

void Logger::error(const char* format, const core::Exception* cause, ...) {
    va_list args;
    va_start(args, cause);
    log(LEVEL_ERROR, cause, format, args);
    va_end(args);
}

void Logger::addAppender(Appender* appender) {
    if (!appender)
        return;
    std::lock_guard<std::mutex> g(mMutex);
    mAppenders.emplace_back(appender);
}

void Logger::removeAppender(Appender* appender) {
    core::SmartPtr<Appender> keep; // released outside the lock
    std::lock_guard<std::mutex> g(mMutex);
    for (auto it = mAppenders.begin(); it != mAppenders.end(); ++it) {
        if (it->get() == appender) {
            keep = *it;
            mAppenders.erase(it);
            break;
        }
    }
}

void Logger::removeAllAppenders() {
    std::vector<core::SmartPtr<Appender>> old;
    std::lock_guard<std::mutex> g(mMutex);
    old.swap(mAppenders);
}

ConsoleAppender* Logger::getConsoleAppender() const {
    std::lock_guard<std::mutex> g(mMutex);
    for (const auto& a : mAppenders)
        if (auto* c = dynamic_cast<ConsoleAppender*>(a.get()))
            return c;
    return nullptr;
}

} // namespace logging
