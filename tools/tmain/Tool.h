#pragma once
// Shared pieces of the tmain command-line tool: exit codes, error lines,
// URL resolution, the progress bar and the terminal/interrupt layer
// (Terminal_posix.cpp / Terminal_win32.cpp).
#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/SmartPtr.h>
#include <tmain/vfs/File.h>
#include <tmain/vfs/FileSystem.h>

namespace tarso {
namespace json {
class JSObject;
}
} // namespace tarso

namespace tmaintool {

constexpr int EXIT_OK = 0;
constexpr int EXIT_FAIL = 1;
constexpr int EXIT_USAGE = 2;
/// The status of a get stopped by Ctrl-C (128 + SIGINT, as shells report it).
constexpr int EXIT_INTERRUPTED = 130;

/// A failure the tool reports as "tmain: <subject>: <message>".
struct Failure {
    std::string subject, message;
};

/// Prints the error line of a failure on standard error.
void printError(const std::string& subject, const std::string& message);
/// Runs a command body, turning every exception into an error line naming
/// `subject` and EXIT_FAIL.
int guarded(const std::string& subject, const std::function<int()>& body);

/// The subcommands; each adds itself to the application and stores its exit
/// status in `status` when it runs.
void addGet(CLI::App& app, int& status);
void addLs(CLI::App& app, int& status);
void addCat(CLI::App& app, int& status);
void addCache(CLI::App& app, int& status);
void addObjdump(CLI::App& app, int& status);
void addJson(CLI::App& app, int& status);
void addPp(CLI::App& app, int& status);
void addEval(CLI::App& app, int& status);
void addWsEcho(CLI::App& app, int& status);

/// A URL taken apart: the scheme ("http", "https", "file"; "zip" for a local
/// archive with "!"), the file system of its folder and the file's name in it.
struct Target {
    std::string url;
    std::string scheme;
    /// "scheme://host[:port]" of a remote URL, empty for local ones.
    std::string origin;
    /// The path below the origin ("dir/file.bin") of a remote URL.
    std::string remotePath;
    std::string folder; ///< the folder's URL
    std::string name;   ///< the file's name in it (empty: the URL ends in "/")
    bool remote() const { return !origin.empty(); }
};
/// Throws Failure for a URL no file system serves.
Target parseTarget(const std::string& url);
/// A new file system for a URL of a folder (or an archive), as createFromURL
/// makes it; a plain path counts as a local one.
::core::SmartPtr<tarso::vfs::FileSystem> openFileSystem(const std::string& url);
/// Looks the URL's file up in the file system of its folder; the folder's
/// file system goes to `fs` (the file keeps a pointer to it).
::core::SmartPtr<tarso::vfs::File> openFile(const Target& target,
                                            ::core::SmartPtr<tarso::vfs::FileSystem>& fs);
/// The cache folder of the user: the application's cache path ($XDG_CACHE_HOME/tmain).
std::string defaultCacheRoot();
/// Folder name of an origin inside a cache root: "127.0.0.1_8080".
std::string originFolder(const std::string& origin);

/// "1.5 MiB", "812 B".
std::string humanSize(unsigned long long bytes);
/// UTC "2024-01-31 12:00:00" of seconds since 1970.
std::string formatTime(long long seconds);

/// A one-line progress bar on standard error, redrawn at most ten times a
/// second: bytes done and total, percentage, rate, time left, bytes served
/// from the cache and fetched. Silent unless enabled (a terminal, no --quiet).
class Progress {
public:
    Progress(bool enabled, std::string label, unsigned long long total);
    ~Progress();
    void update(unsigned long long done, unsigned long long fromCache, unsigned long long fetched);
    /// Draws the last state and ends the line.
    void finish();

private:
    void draw();
    bool mEnabled;
    std::string mLabel;
    unsigned long long mTotal, mDone = 0, mCached = 0, mFetched = 0;
    std::chrono::steady_clock::time_point mStart, mLast;
    bool mDrawn = false, mFinished = false;
};

// Terminal and process layer (one implementation per platform).
/// True when standard error is a terminal.
bool stderrIsTerminal();
/// Columns of the terminal of standard error; 80 when unknown.
unsigned terminalWidth();
/// The first Ctrl-C (or SIGTERM) only sets interrupted(), so a transfer can
/// stop cleanly; a second one ends the process at once.
void installInterruptHandler();
bool interrupted();
/// The UTC calendar time of t.
void utcTime(time_t t, struct tm& out);
/// Standard input and output in binary mode (no newline translation).
void setBinaryStdio();

/// Appends the value as indented JSON (two spaces a level), keys in their order.
void prettyJson(tarso::json::JSObject* value, unsigned depth, std::string& out);
/// The whole contents of a local file, or of standard input for "-".
std::string readInput(const std::string& path);
/// Writes all bytes to standard output; throws Failure on a write error.
void writeStdout(const void* data, size_t size);

} // namespace tmaintool
