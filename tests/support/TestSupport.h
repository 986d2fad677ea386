#pragma once
// Fixtures shared by the test suites: temporary directories, log capture and
// external tools used as peers.
#include <gtest/gtest.h>
#include <initializer_list>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <tmain/foundation/Logger.h>
#include <vector>

namespace tmaintest {

/// A fresh directory under the system's temporary folder, removed with its
/// contents on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::string& path() const { return mPath; }
    std::string file(const std::string& name) const { return mPath + "/" + name; }

private:
    std::string mPath;
};

/// Collects every event of the root logger while alive.
class LogCapture : public logging::Appender {
public:
    LogCapture();
    /// Keeps the capture registered until detach() (for objects used across scopes).
    void detach();
    std::vector<std::string> messages(logging::Level atLeast = logging::LEVEL_DEBUG) const;
    bool contains(const std::string& text, logging::Level atLeast = logging::LEVEL_DEBUG) const;
    void clear();

protected:
    void append(const logging::LogEvent& event, const std::string& formatted) override;

private:
    mutable std::mutex mMutex;
    std::vector<std::pair<logging::Level, std::string>> mEvents;
};

/// RAII registration of a LogCapture on the root logger.
class ScopedLogCapture {
public:
    ScopedLogCapture();
    ~ScopedLogCapture();
    LogCapture& operator*() { return *mCapture; }
    LogCapture* operator->() { return mCapture.get(); }

private:
    core::SmartPtr<LogCapture> mCapture;
};

/// True when the tool is on PATH. Under CI=true a missing tool fails the
/// calling test; elsewhere the caller skips.
bool haveTool(const char* name);
#define TMAIN_REQUIRE_TOOL(name)                                                                             \
    do {                                                                                                     \
        if (!::tmaintest::haveTool(name)) {                                                                  \
            if (::tmaintest::underCI())                                                                      \
                FAIL() << "required tool missing under CI: " << name;                                        \
            GTEST_SKIP() << "tool not installed: " << name;                                                  \
        }                                                                                                    \
    } while (0)
bool underCI();

/// True inside wine (the Windows build's tests run there).
bool underWine();
/// Skips the calling test under wine only, saying why it cannot run there.
#define TMAIN_SKIP_UNDER_WINE(reason)                                                                        \
    do {                                                                                                     \
        if (::tmaintest::underWine())                                                                        \
            GTEST_SKIP() << "not under wine: " << reason;                                                    \
    } while (0)

/// Runs a command with /bin/sh; returns its exit status (-1 when it could not
/// run) and fills `output` with its stdout. On Windows (under wine) a process
/// the command leaves running must not keep that stdout open.
int run(const std::string& command, std::string* output = nullptr);
/// The stdout of a shell command that must succeed (a failure fails the calling test).
std::string outputOf(const std::string& command);

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& data);
/// The message of the E the call throws, or "<no exception>".
template <class E, class F> std::string messageOf(F f) {
    try {
        f();
    } catch (const E& e) {
        return e.getMessage();
    }
    return "<no exception>";
}
/// Expects the statement to throw an E whose message is exactly `text`.
#define EXPECT_MESSAGE(E, text, ...) EXPECT_EQ(text, ::tmaintest::messageOf<E>([&] { __VA_ARGS__; }))

/// Each part followed by "|" (a null text as "null"). The parts are turned
/// into text in the order written, each as soon as it is evaluated, so one
/// comparison can check many results.
struct cat : std::string {
    struct part : std::string {
        part(const char* text) : std::string(text ? text : "null") {}
        template <class T> part(const T& value) {
            std::ostringstream out;
            out << value;
            assign(out.str());
        }
    };
    cat(std::initializer_list<part> parts) {
        for (const part& p : parts)
            append(p).append("|");
    }
};
#define EXPECT_JOINED(expected, ...)                                                                         \
    EXPECT_EQ(std::string(expected), std::string(::tmaintest::cat{__VA_ARGS__}))

/// Deterministic pseudo-random bytes.
std::string randomBytes(size_t n, unsigned seed);

/// The bytes held by a memory stream (anything with getBytes() and getSize()).
template <class S> std::string bytesOf(const S& stream) {
    return std::string(reinterpret_cast<const char*>(stream.getBytes()), stream.getSize());
}

/// Runs body(i) for i in [0, n) on n threads at once and joins them.
template <class F> void onThreads(int n, F body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < n; ++i)
        threads.emplace_back(body, i);
    for (auto& t : threads)
        t.join();
}

} // namespace tmaintest
