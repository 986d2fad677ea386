// tmain cat: writes a file's bytes to standard output.
#include "Tool.h"
#include <tmain/stream/InputStream.h>
#include <vector>

using namespace tarso;

namespace tmaintool {

namespace {

struct CatOptions {
    std::string url;
    bool quiet = false;
};

int runCat(const CatOptions& o) {
    Target t = parseTarget(o.url);
    ::core::SmartPtr<vfs::FileSystem> fs;
    ::core::SmartPtr<vfs::File> file = openFile(t, fs);
    std::unique_ptr<stream::InputStream> in(file->getInputStream());
    in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    const unsigned long long size = file->getSize();
    // Local reads are instant: only remote ones get a bar.
    Progress progress(t.remote() && !o.quiet && stderrIsTerminal(), t.name, size);
    std::vector<char> buffer(1u << 18);
    unsigned long long done = 0;
    while (unsigned n = in->read(buffer.data(), 1, (unsigned)buffer.size())) {
        writeStdout(buffer.data(), n);
        done += n;
        progress.update(done, 0, done);
    }
    if (in->hasError() || (size && done != size))
        throw Failure{o.url,
                      "read ended after " + std::to_string(done) + " of " + std::to_string(size) + " bytes"};
    progress.finish();
    return EXIT_OK;
}

} // namespace

void addCat(CLI::App& app, int& status) {
    auto o = std::make_shared<CatOptions>();
    CLI::App* cmd = app.add_subcommand("cat", "Write a file's bytes to standard output");
    cmd->add_option("URL", o->url, "The file (http, https, file, archive.zip!entry)")->required();
    cmd->add_flag("-q,--quiet", o->quiet, "No progress bar");
    cmd->callback([o, &status] { status = guarded(o->url, [o] { return runCat(*o); }); });
}

} // namespace tmaintool
