#include <tmain/platform/CommandLineParser.h>

#include <cstdlib>
#include <cstring>

namespace tarso {
namespace platform {

namespace {
char* copyOf(const char* text, size_t n) {
    char* s = static_cast<char*>(malloc(n + 1));
    if (!s)
        throw std::bad_alloc();
    memcpy(s, text, n);
    s[n] = '\0';
    return s;
}
} // namespace

CommandLineParser::CommandLineParser(const char* commandLine) : mCommandCharacter('-') {
    setCommandLine(commandLine);
}

CommandLineParser::CommandLineParser(int argc, const char** argv) : mCommandCharacter('-') {
    setCommandLine(argc, argv);
}

CommandLineParser::CommandLineParser(const CommandLineParser& other)
    : mCommands(other.mCommands), mUnknown(other.mUnknown), mCommandCharacter(other.mCommandCharacter) {
    copyArguments(other.mArguments);
}

CommandLineParser& CommandLineParser::operator=(const CommandLineParser& other) {
    if (this != &other) {
        clear();
        copyArguments(other.mArguments);
        mCommands = other.mCommands;
        mUnknown = other.mUnknown;
        mCommandCharacter = other.mCommandCharacter;
    }
    return *this;
}

CommandLineParser::~CommandLineParser() {
    clear();
}

void CommandLineParser::clear() {
    for (char* a : mArguments)
        free(a);
    mArguments.clear();
}

void CommandLineParser::copyArguments(const ArgumentList& from) {
    for (const char* a : from)
        mArguments.push_back(copyOf(a, strlen(a)));
}

void CommandLineParser::setCommandLine(const char* commandLine) {
    clear();
    build(commandLine, mArguments);
}

void CommandLineParser::setCommandLine(int argc, const char** argv) {
    clear();
    for (int i = 0; argv && i < argc; ++i)
        if (argv[i])
            mArguments.push_back(copyOf(argv[i], strlen(argv[i])));
}

void CommandLineParser::build(const char* line, ArgumentList& out) {
    std::string exe = executablePath();
    out.push_back(copyOf(exe.data(), exe.size()));
    const char* p = line ? line : "";
    for (;;) {
        while (*p == ' ')
            ++p;
        if (!*p)
            return;
        if (*p == '"') {
            const char* end = strchr(++p, '"');
            size_t n = end ? (size_t)(end - p) : strlen(p);
            out.push_back(copyOf(p, n));
            p += n + (end ? 1 : 0);
        } else {
            size_t n = strcspn(p, " ");
            out.push_back(copyOf(p, n));
            p += n;
        }
    }
}

void CommandLineParser::registerCommand(const char* name, const Handler& handler) {
    if (name)
        mCommands[name] = handler;
}

void CommandLineParser::unregisterCommand(const char* name) {
    if (name)
        mCommands.erase(name);
}

void CommandLineParser::registerUnknown(const Handler& handler) {
    mUnknown = handler;
}

void CommandLineParser::unregisterUnknown() {
    mUnknown.clear();
}

void CommandLineParser::parse() {
    ArgIterator end = mArguments.end();
    for (ArgIterator pos = mArguments.begin(); pos != end;) {
        const char* arg = *pos++;
        if (arg[0] == mCommandCharacter && arg[0] != '\0') {
            auto it = mCommands.find(arg + 1);
            if (it != mCommands.end() && it->second)
                it->second(arg + 1, pos, end);
            else if (mUnknown)
                mUnknown(arg + 1, pos, end);
        } else if (mUnknown) {
            mUnknown(nullptr, pos, end);
        }
    }
}

} // namespace platform
} // namespace tarso
