#include "Tool.h"
#include <cinttypes>
#include <cstring>
#include <ctime>
#include <tmain/foundation/Exception.h>
#include <tmain/json/JSObject.h>
#include <tmain/platform/Application.h>
#include <tmain/stream/FileInputStream.h>
#include <tmain/vfs/FileNotFoundException.h>
#include <tmain/vfs/HTTPException.h>
#include <tmain/vfs/URLComponents.h>

using namespace tarso;

namespace tmaintool {

void printError(const std::string& subject, const std::string& message) {
    std::string line = "tmain: " + (subject.empty() ? std::string() : subject + ": ") + message;
    // One line, whatever the message holds.
    for (char& c : line)
        if (c == '\n' || c == '\r')
            c = ' ';
    fprintf(stderr, "%s\n", line.c_str());
    fflush(stderr);
}

int guarded(const std::string& subject, const std::function<int()>& body) {
    try {
        return body();
    } catch (const Failure& f) {
        printError(f.subject.empty() ? subject : f.subject, f.message);
    } catch (const vfs::FileNotFoundException& e) {
        // Its message is only the path.
        printError(subject, std::string("not found: ") + e.getMessage());
    } catch (const vfs::HTTPException& e) {
        // The status is not part of the message ("Server error").
        printError(subject,
                   std::string(e.getMessage()) +
                       (e.getStatusCode() > 0 ? " (HTTP " + std::to_string(e.getStatusCode()) + ")" : ""));
    } catch (const ::core::Exception& e) {
        printError(subject, e.getMessage());
    } catch (const std::bad_alloc&) {
        printError(subject, "out of memory");
    } catch (const std::exception& e) {
        printError(subject, e.what());
    }
    return EXIT_FAIL;
}

Target parseTarget(const std::string& url) {
    vfs::URLComponents parts;
    if (url.empty() || !vfs::URLComponents::crack(url.c_str(), parts))
        throw Failure{url, "not a URL or path"};
    Target t;
    t.url = url;
    t.scheme = parts.scheme;
    for (char& c : t.scheme)
        c = (char)tolower((unsigned char)c);
    if (t.scheme == "http" || t.scheme == "https") {
        if (parts.host.empty())
            throw Failure{url, "no host in URL"};
        size_t authority = url.find("://") + 3;
        size_t slash = url.find('/', authority);
        t.origin = url.substr(0, slash);
        t.remotePath = slash == std::string::npos ? std::string() : url.substr(slash + 1);
    } else if (t.scheme != "file") {
        throw Failure{url, "unsupported URL scheme '" + parts.scheme + "'"};
    } else if (url.find('!') != std::string::npos) {
        t.scheme = "zip";
    }
    // The folder ends at the last "/" (or at the "!" of an archive whose
    // entry sits at its top).
    size_t cut = url.rfind('/');
    size_t bang = url.find('!');
    if (bang != std::string::npos && (cut == std::string::npos || cut < bang))
        cut = bang;
    if (t.remote() && (cut == std::string::npos || cut < t.origin.size()))
        cut = t.origin.size();
    if (cut == std::string::npos) {
        t.folder = ".";
        t.name = url;
    } else {
        t.folder = url.substr(0, cut);
        t.name = url.substr(cut + 1);
        if (t.folder.empty())
            t.folder = "/";
    }
    return t;
}

::core::SmartPtr<vfs::FileSystem> openFileSystem(const std::string& url) {
    ::core::SmartPtr<vfs::FileSystem> fs;
    fs = vfs::FileSystem::createFromURL(url.c_str());
    return fs;
}

::core::SmartPtr<vfs::File> openFile(const Target& target, ::core::SmartPtr<vfs::FileSystem>& fs) {
    if (target.name.empty())
        throw Failure{target.url, "names a folder, not a file"};
    fs = openFileSystem(target.folder);
    ::core::SmartPtr<vfs::File> file;
    file = fs->lookup(target.name.c_str());
    if (file->isContainer())
        throw Failure{target.url, "is a folder, not a file"};
    return file;
}

std::string defaultCacheRoot() {
    platform::Application::ApplicationData data;
    data.mName = "tmain";
    platform::Application::init(&data);
    std::string root = platform::Application::getCachePath();
    if (root.empty())
        throw Failure{"", "no cache folder: set XDG_CACHE_HOME or HOME, or pass --cache"};
    return root;
}

std::string originFolder(const std::string& origin) {
    std::string host = origin.substr(origin.find("://") + 3);
    if (origin.compare(0, 6, "https:") == 0)
        host = "https_" + host;
    for (char& c : host)
        if (!isalnum((unsigned char)c) && c != '.' && c != '-' && c != '_')
            c = '_';
    return host;
}

std::string humanSize(unsigned long long bytes) {
    static const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    double v = (double)bytes;
    int u = 0;
    while (v >= 1024.0 && u < 4) {
        v /= 1024.0;
        ++u;
    }
    char b[32];
    if (u == 0)
        snprintf(b, sizeof(b), "%llu B", bytes);
    else
        snprintf(b, sizeof(b), "%.1f %s", v, units[u]);
    return b;
}

std::string formatTime(long long seconds) {
    time_t t = (time_t)seconds;
    struct tm tmv {};
    utcTime(t, tmv);
    char b[32];
    strftime(b, sizeof(b), "%Y-%m-%d %H:%M:%S", &tmv);
    return b;
}

Progress::Progress(bool enabled, std::string label, unsigned long long total)
    : mEnabled(enabled), mLabel(std::move(label)), mTotal(total), mStart(std::chrono::steady_clock::now()),
      mLast(mStart) {}

Progress::~Progress() {
    // An interrupted transfer leaves its last state on its own line.
    if (mDrawn && !mFinished)
        fputs("\n", stderr);
}

void Progress::update(unsigned long long done, unsigned long long fromCache, unsigned long long fetched) {
    mDone = done;
    mCached = fromCache;
    mFetched = fetched;
    if (!mEnabled)
        return;
    auto now = std::chrono::steady_clock::now();
    if (mDrawn && now - mLast < std::chrono::milliseconds(100))
        return;
    mLast = now;
    draw();
}

void Progress::finish() {
    if (mEnabled && !mFinished) {
        if (mTotal)
            mDone = mTotal > mDone ? mDone : mTotal;
        draw();
        fputs("\n", stderr);
        fflush(stderr);
    }
    mFinished = true;
}

void Progress::draw() {
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
    double rate = seconds > 0 ? mDone / seconds : 0;
    char stats[160];
    std::string left = "--:--";
    if (mTotal && rate > 0 && mDone <= mTotal) {
        unsigned long long s = (unsigned long long)((mTotal - mDone) / rate);
        char b[32];
        snprintf(b, sizeof(b), "%llu:%02llu", s / 60, s % 60);
        left = b;
    }
    int percent = mTotal ? (int)(mDone * 100 / mTotal) : 0;
    snprintf(stats, sizeof(stats), " %3d%% %s/%s %s/s %s left, cached %s, fetched %s", percent,
             humanSize(mDone).c_str(), mTotal ? humanSize(mTotal).c_str() : "?",
             humanSize((unsigned long long)rate).c_str(), left.c_str(), humanSize(mCached).c_str(),
             humanSize(mFetched).c_str());
    unsigned width = terminalWidth();
    std::string label = mLabel;
    // The bar takes what the label and the figures leave (10 to 40 columns);
    // a long label gives way first.
    int room = (int)width - (int)strlen(stats) - 4;
    if ((int)label.size() + 10 > room && room > 16)
        label = "..." + label.substr(label.size() - (size_t)(room - 13));
    int barWidth = room - (int)label.size();
    barWidth = barWidth < 10 ? 10 : barWidth > 40 ? 40 : barWidth;
    int filled = mTotal ? (int)(mDone * (unsigned long long)barWidth / mTotal) : 0;
    std::string bar =
        "[" + std::string((size_t)filled, '#') + std::string((size_t)(barWidth - filled), '.') + "]";
    std::string line = label + " " + bar + stats;
    if (line.size() >= width)
        line.resize(width ? width - 1 : 0);
    // Carriage return, the line, and erase the rest of an older, longer line.
    fprintf(stderr, "\r%s\x1b[K", line.c_str());
    fflush(stderr);
    mDrawn = true;
}

void prettyJson(json::JSObject* v, unsigned depth, std::string& out) {
    const std::string pad(2 * (depth + 1), ' ');
    const json::JSObject::Type type = v->getType();
    if (type != json::JSObject::T_OBJECT && type != json::JSObject::T_ARRAY) {
        v->dump(out); // scalars: the model's own text, escapes included
        return;
    }
    const bool object = type == json::JSObject::T_OBJECT;
    if (v->getLength() == 0) {
        out += object ? "{}" : "[]";
        return;
    }
    out += object ? "{\n" : "[\n";
    if (object) {
        bool first = true;
        for (json::JSObject::JSIterator it = v->begin(); !it.isEnd(); ++it) {
            out += first ? "" : ",\n";
            first = false;
            out += pad;
            ::core::SmartPtr<json::JSObject> key(new json::JSObject(it.getKey()));
            key->dump(out);
            out += ": ";
            prettyJson(it.getValue(), depth + 1, out);
        }
    } else {
        for (unsigned i = 0; i < v->getLength(); ++i) {
            out += i ? ",\n" + pad : pad;
            prettyJson(v->get(i), depth + 1, out);
        }
    }
    out += "\n" + std::string(2 * depth, ' ') + (object ? "}" : "]");
}

std::string readInput(const std::string& path) {
    std::string data;
    if (path == "-") {
        char b[65536];
        size_t n;
        while ((n = fread(b, 1, sizeof(b), stdin)) > 0)
            data.append(b, n);
        if (ferror(stdin))
            throw Failure{"standard input", strerror(errno)};
        return data;
    }
    stream::FileInputStream in(path.c_str());
    in.open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    char b[65536];
    while (unsigned n = in.read(b, 1, sizeof(b)))
        data.append(b, n);
    if (in.hasError())
        throw Failure{path, "read error"};
    return data;
}

void writeStdout(const void* data, size_t size) {
    if (size && fwrite(data, 1, size, stdout) != size)
        throw Failure{"standard output", strerror(errno)};
}

} // namespace tmaintool
