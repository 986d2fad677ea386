#include <tmain/foundation/Logger.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
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

namespace {

/// Per-thread state of the logging path: the event and text buffers reused
/// by every message (a nested message, logged from inside an appender, gets
/// its own) and the last time stamp.
struct ThreadScratch {
    int depth = 0;
    LogEvent event{};
    std::string text;
    /// The last time stamp, kept apart so that a spare costs two stores.
    struct Stamp {
        time_t time = (time_t)-1;
        size_t length = 0;
        char text[32];
    } stamp;
};

// Plain pointers and flags stay valid while other thread_local and static
// objects are destroyed, and those may still log: once the scratch is gone,
// each message uses a scratch of its own.
thread_local ThreadScratch* tScratch = nullptr;
thread_local bool tScratchGone = false;

struct ScratchOwner {
    ~ScratchOwner() {
        delete tScratch;
        tScratch = nullptr;
        tScratchGone = true;
    }
};

/// The calling thread's scratch, or null while threads and the process end.
ThreadScratch* scratch() {
    if (!tScratch && !tScratchGone) {
        thread_local ScratchOwner owner;
        (void)owner;
        tScratch = new ThreadScratch();
    }
    return tScratch;
}

} // namespace

void Layout::formatTo(const LogEvent& event, std::string& out) const {
    out = format(event);
}

std::string SimpleLayout::format(const LogEvent& e) const {
    std::string out;
    formatTo(e, out);
    return out;
}

void SimpleLayout::formatTo(const LogEvent& e, std::string& out) const {
    // The stamp changes once a second: each thread keeps its last one.
    ThreadScratch::Stamp spare;
    ThreadScratch* p = scratch();
    ThreadScratch::Stamp& s = p ? p->stamp : spare;
    if (e.time != s.time) {
        struct tm tmv;
#if defined(_WIN32)
        localtime_s(&tmv, &e.time);
#else
        localtime_r(&e.time, &tmv);
#endif
        s.length = strftime(s.text, sizeof(s.text), "%Y-%m-%d %H:%M:%S", &tmv);
        s.time = e.time;
    }
    // Level names padded to five characters, "OFF" for anything out of range.
    static const char padded[LEVEL_OFF + 1][6] = {"DEBUG", "INFO ", "WARN ", "ERROR", "FATAL", "OFF  "};
    const char* level = padded[(unsigned)e.level <= LEVEL_OFF ? (unsigned)e.level : (unsigned)LEVEL_OFF];
    const size_t thread = e.threadName.size();
    const size_t message = e.message.size();
    // One resize and plain copies: the buffer is reused, so it usually has
    // the room already.
    out.resize(s.length + 7 + (thread ? thread + 3 : 0) + message + 1);
    char* d = &out[0];
    memcpy(d, s.text, s.length);
    d += s.length;
    *d++ = ' ';
    memcpy(d, level, 5);
    d += 5;
    if (thread) {
        memcpy(d, " [", 2);
        memcpy(d + 2, e.threadName.data(), thread);
        d += thread + 2;
        *d++ = ']';
    }
    *d++ = ' ';
    memcpy(d, e.message.data(), message);
    d[message] = '\n';
}

Appender::Appender(Layout* layout) : mLayout(layout ? layout : new SimpleLayout()), mThreshold(LEVEL_DEBUG) {}

Appender::~Appender() {}

void Appender::doAppend(const LogEvent& event) {
    if (event.level < mThreshold || mThreshold == LEVEL_OFF)
        return;
    ThreadScratch* s = scratch();
    if (s && s->depth == 1) {
        mLayout->formatTo(event, s->text);
        append(event, s->text);
    } else {
        std::string text;
        mLayout->formatTo(event, text);
        append(event, text);
    }
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

Logger::Logger(const char* name)
    : mName(name ? name : ""), mLevel(LEVEL_DEBUG), mAppenders(std::make_shared<AppenderList>()) {}

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

std::shared_ptr<const Logger::AppenderList> Logger::appenders() const {
    std::lock_guard<std::mutex> g(mMutex);
    return mAppenders;
}

namespace {

bool anyAccepts(const std::vector<core::SmartPtr<Appender>>& appenders, Level level) {
    for (const auto& a : appenders)
        if (level >= a->getThreshold() && a->getThreshold() != LEVEL_OFF)
            return true;
    return false;
}

/// Formats into out as core::formatMessage does (cut at the format's length
/// plus 1023 characters); out keeps its capacity between messages.
void formatLogMessage(std::string& out, const char* format, va_list args) {
    // Formats of plain text, "%s" and "%%" (the most common ones) are copied
    // together here; vsnprintf's set-up costs more than the copying.
    const char* f = format;
    while (*f && (*f != '%' || f[1] == 's' || f[1] == '%'))
        f += *f == '%' ? 2 : 1;
    if (!*f) {
        out.clear();
        for (f = format; *f;) {
            const char* run = f;
            while (*f && *f != '%')
                ++f;
            if (f != run)
                out.append(run, f - run);
            if (!*f)
                break;
            if (f[1] == '%') {
                out += '%';
            } else {
                const char* arg = va_arg(args, const char*);
                out += arg ? arg : "(null)";
            }
            f += 2;
        }
        size_t limit = (size_t)(f - format) + 1023;
        if (out.size() > limit)
            out.resize(limit);
        return;
    }
    char buf[1024];
    va_list copy;
    va_copy(copy, args);
    int n = vsnprintf(buf, sizeof(buf), format, copy);
    va_end(copy);
    if (n < 0) {
        out = format;
    } else if ((size_t)n < sizeof(buf)) {
        out.assign(buf, strnlen(buf, (size_t)n));
    } else {
        size_t limit = strlen(format) + 1023;
        out.resize((size_t)n < limit ? (size_t)n : limit);
        vsnprintf(&out[0], out.size() + 1, format, args);
        out.resize(strnlen(out.data(), out.size()));
    }
}

/// Undoes a nesting level of the logging path, also when an appender throws.
struct Depth {
    ThreadScratch& s;
    explicit Depth(ThreadScratch& scratch) : s(scratch) { ++s.depth; }
    ~Depth() { --s.depth; }
};

} // namespace

bool Logger::isEnabled(Level level) const {
    return level >= mLevel && anyAccepts(*appenders(), level);
}

namespace {

/// Fills e and hands it to every appender of the list.
void deliver(LogEvent& e, const std::vector<core::SmartPtr<Appender>>& list, Level level, const char* name,
             const core::Exception* cause, const char* format, va_list args) {
    e.level = level;
    e.loggerName = name;
    formatLogMessage(e.message, format ? format : "", args);
    // The cause's message goes after the event's own, with its whole chain.
    for (const core::Exception* c = cause; c; c = c->getCause()) {
        e.message += c == cause ? ": " : " <- ";
        e.message += c->getType().getName();
        e.message += ": ";
        e.message += c->getMessage();
    }
    e.time = time(nullptr);
    e.threadName = core::Thread::getCurrentThreadName();
    for (auto& a : list)
        a->doAppend(e);
}

} // namespace

void Logger::log(Level level, const core::Exception* cause, const char* format, va_list args) {
    if (level < mLevel)
        return;
    std::shared_ptr<const AppenderList> list = appenders();
    if (!anyAccepts(*list, level))
        return;
    ThreadScratch* s = scratch();
    if (s && s->depth == 0) {
        // The common case: the thread's own event, no nesting.
        Depth depth(*s);
        deliver(s->event, *list, level, mName.c_str(), cause, format, args);
        return;
    }
    std::optional<ThreadScratch> spare;
    Depth depth(s ? *s : spare.emplace());
    LogEvent nested;
    deliver(nested, *list, level, mName.c_str(), cause, format, args);
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
    core::SmartPtr<Appender> added(appender);
    std::lock_guard<std::mutex> g(mMutex);
    auto list = std::make_shared<AppenderList>(*mAppenders);
    list->push_back(added);
    mAppenders = list;
}

void Logger::removeAppender(Appender* appender) {
    std::shared_ptr<const AppenderList> old; // released outside the lock
    std::lock_guard<std::mutex> g(mMutex);
    for (auto it = mAppenders->begin(); it != mAppenders->end(); ++it) {
        if (it->get() == appender) {
            auto list = std::make_shared<AppenderList>(*mAppenders);
            list->erase(list->begin() + (it - mAppenders->begin()));
            old = mAppenders;
            mAppenders = list;
            break;
        }
    }
}

void Logger::removeAllAppenders() {
    std::shared_ptr<const AppenderList> old = std::make_shared<AppenderList>();
    std::lock_guard<std::mutex> g(mMutex);
    old.swap(mAppenders);
}

ConsoleAppender* Logger::getConsoleAppender() const {
    for (const auto& a : *appenders())
        if (auto* c = dynamic_cast<ConsoleAppender*>(a.get()))
            return c;
    return nullptr;
}

} // namespace logging
