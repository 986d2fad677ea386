// tmain ls: lists a folder of any file system (local, archive, archive!folder).
#include "Tool.h"
#include <algorithm>
#include <tmain/vfs/FileList.h>

using namespace tarso;

namespace tmaintool {

namespace {

struct LsOptions {
    std::string url;
    bool longFormat = false, recursive = false;
};

struct Entry {
    std::string path;
    bool container;
    unsigned long long size;
    long long modified;
};

void collect(vfs::FileSystem& fs, const std::string& path, bool recursive, std::vector<Entry>& out) {
    vfs::FileList list;
    fs.list(path.c_str(), list);
    std::vector<Entry> here;
    for (vfs::File* f : list) {
        if (!f)
            continue;
        std::string p = f->getPath();
        while (!p.empty() && p[0] == '/')
            p.erase(0, 1);
        bool container = f->isContainer();
        here.push_back({p, container, container ? 0 : (unsigned long long)f->getSize(),
                        (long long)f->getLastModified()});
    }
    std::sort(here.begin(), here.end(), [](const Entry& a, const Entry& b) { return a.path < b.path; });
    for (const Entry& e : here) {
        out.push_back(e);
        if (recursive && e.container)
            collect(fs, e.path, true, out);
    }
}

int runLs(const LsOptions& o) {
    ::core::SmartPtr<vfs::FileSystem> fs = openFileSystem(o.url);
    std::vector<Entry> entries;
    collect(*fs, "", o.recursive, entries);
    std::string text;
    char line[96];
    for (const Entry& e : entries) {
        if (o.longFormat) {
            if (e.container)
                snprintf(line, sizeof(line), "d %12s %s  ", "-", formatTime(e.modified).c_str());
            else
                snprintf(line, sizeof(line), "- %12llu %s  ", e.size, formatTime(e.modified).c_str());
            text += line;
        }
        text += e.path + (e.container ? "/\n" : "\n");
    }
    writeStdout(text.data(), text.size());
    return EXIT_OK;
}

} // namespace

void addLs(CLI::App& app, int& status) {
    auto o = std::make_shared<LsOptions>();
    CLI::App* cmd = app.add_subcommand("ls", "List a folder: local, archive.zip or archive.zip!folder");
    cmd->add_option("URL", o->url, "The folder")->required();
    cmd->add_flag("-l,--long", o->longFormat, "Type, size and modification time (UTC) of each entry");
    cmd->add_flag("-r,--recursive", o->recursive, "Descend into folders");
    cmd->callback([o, &status] { status = guarded(o->url, [o] { return runLs(*o); }); });
}

} // namespace tmaintool
