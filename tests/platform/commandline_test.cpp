// CommandLineParser splitting and dispatch; Application's folders.
#include "../support/TestSupport.h"
#include <tmain/platform/CommandLineParser.h>

using namespace tarso::platform;
typedef CommandLineParser::ArgIterator It;

/// The running executable's full path, as the system reports it
/// (commandline_posix.cpp, commandline_win32.cpp).
std::string exePath();

namespace {
std::string args(const CommandLineParser& p, unsigned from = 1) {
    std::string s;
    for (unsigned i = from; i < p.getArgumentCount(); ++i)
        s += std::string("[") + p.getArgument(i) + "]";
    return s;
}
struct Recorder {
    std::string log;
    void out(const char* name, It& pos, It end) {
        log += std::string(name) + "=" + (pos != end ? *pos++ : "<none>") + ";";
    }
    void unknown(const char* name, It& pos, It) {
        log += name ? std::string("?") + name + ";" : pos[-1] + std::string(";");
    }
};
} // namespace

TEST(CommandLineParser, Splitting) {
    const char* cases[][2] = {
        {"a \"b c\" d", "[a][b c][d]"}, {"\"abc", "[abc]"},
        {"a  b   ", "[a][b]"},          {"a\tb c", "[a\tb][c]"},
        {"x\"y z\"w", "[x\"y][z\"w]"},  {"\"c:\\dir\\\" next", "[c:\\dir\\][next]"},
        {"\"\" \"a\"b", "[][a][b]"},    {"", ""},
    };
    for (auto& c : cases) {
        CommandLineParser p(c[0]);
        EXPECT_EQ(c[1], args(p)) << c[0];
        EXPECT_EQ(exePath(), p.getArgument(0));
    }
    const char* argv[] = {"prog", nullptr, "-x", "y"};
    CommandLineParser p(4, argv);
    EXPECT_JOINED("3|[prog][-x][y]|null|", p.getArgumentCount(), args(p, 0), p.getArgument(3));
    p.setCommandLine("q");
    EXPECT_JOINED("2|[q]|", p.getArgumentCount(), args(p));
}

TEST(CommandLineParser, DispatchConsumesValues) {
    Recorder r;
    CommandLineParser p("-o file -v plain -o -x last -o");
    p.registerCommand("o", &r, &Recorder::out);
    std::string flags;
    p.registerCommand("v", [&](const char* name, It&, It) { flags += name; });
    p.parse();
    EXPECT_EQ("o=file;o=-x;o=<none>;", r.log);
    EXPECT_EQ("v", flags);
    p.registerUnknown(&r, &Recorder::unknown);
    r.log.clear();
    p.parse();
    EXPECT_EQ(exePath() + ";o=file;plain;o=-x;last;o=<none>;", r.log);
    // A copy has its own arguments and the same handlers; '/' as command character.
    CommandLineParser copy(p);
    copy.setCommandLine("/v -v /o x");
    copy.setCommandCharacter('/');
    copy.unregisterCommand("o");
    r.log.clear();
    copy.parse();
    // An executable path that starts with '/' counts as a command; "C:\..." does not.
    const std::string exe = exePath()[0] == '/' ? "?" + exePath().substr(1) : exePath();
    EXPECT_JOINED("vvv|/|" + exe + ";-v;?o;x;|", flags, copy.getCommandCharacter(), r.log);
    copy.unregisterUnknown();
    r.log.clear();
    copy.parse();
    EXPECT_EQ("", r.log);
    EXPECT_EQ("[-o][file][-v][plain][-o][-x][last][-o]", args(p));
}
