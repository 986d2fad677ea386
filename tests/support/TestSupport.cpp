#include "TestSupport.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

namespace tmaintest {

LogCapture::LogCapture() : logging::Appender(nullptr) {}

void LogCapture::detach() {
    logging::Logger::getRootLogger().removeAppender(this);
}

void LogCapture::append(const logging::LogEvent& event, const std::string&) {
    std::lock_guard<std::mutex> g(mMutex);
    mEvents.emplace_back(event.level, event.message);
}

std::vector<std::string> LogCapture::messages(logging::Level atLeast) const {
    std::lock_guard<std::mutex> g(mMutex);
    std::vector<std::string> out;
    for (auto& e : mEvents)
        if (e.first >= atLeast)
            out.push_back(e.second);
    return out;
}

bool LogCapture::contains(const std::string& text, logging::Level atLeast) const {
    for (auto& m : messages(atLeast))
        if (m.find(text) != std::string::npos)
            return true;
    return false;
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> g(mMutex);
    mEvents.clear();
}

ScopedLogCapture::ScopedLogCapture() : mCapture(new LogCapture()) {
    logging::Logger::getRootLogger().addAppender(mCapture.get());
}

ScopedLogCapture::~ScopedLogCapture() {
    mCapture->detach();
}

bool haveTool(const char* name) {
    return run(std::string("command -v ") + name + " >/dev/null 2>&1") == 0;
}

bool underCI() {
    const char* ci = getenv("CI");
    return ci && std::string(ci) == "true";
}

std::string outputOf(const std::string& command) {
    std::string out;
    EXPECT_EQ(0, run(command, &out)) << command << "\n" << out;
    return out;
}

std::string readFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

void writeFile(const std::string& path, const std::string& data) {
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    f.write(data.data(), (std::streamsize)data.size());
}

std::string randomBytes(size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i)
        s[i] = (char)(rng() & 0xFF);
    return s;
}

} // namespace tmaintest
