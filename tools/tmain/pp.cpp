// tmain pp: runs the preprocessor over a file.
#include "Tool.h"
#include <tmain/parser/Preprocessor.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/ByteOutputStream.h>

using namespace tarso;

namespace tmaintool {

namespace {

struct PpOptions {
    std::string file;
    std::vector<std::string> defines;
};

int runPp(const PpOptions& o) {
    // The preprocessor starts every run with no macros: the -D definitions
    // go in front of the text as #define lines.
    std::string text;
    for (const std::string& d : o.defines) {
        size_t eq = d.find('=');
        std::string name = d.substr(0, eq), value = eq == std::string::npos ? "1" : d.substr(eq + 1);
        if (name.empty() || name.find_first_of(" \t\r\n(") != std::string::npos ||
            value.find_first_of("\r\n") != std::string::npos)
            throw Failure{"-D" + d, "expected -DNAME or -DNAME=VALUE"};
        text += "#define " + name + " " + value + "\n";
    }
    text += readInput(o.file);
    stream::ByteInputStream in(text.data(), (unsigned)text.size(), false);
    in.open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    stream::ByteOutputStream out(65536, 65536);
    out.open(stream::Stream::OM_WRITE | stream::Stream::OM_BINARY);
    parser::Preprocessor pp;
    pp.preprocess(&in, &out);
    writeStdout(out.getBytes(), out.getSize());
    return EXIT_OK;
}

} // namespace

void addPp(CLI::App& app, int& status) {
    auto o = std::make_shared<PpOptions>();
    CLI::App* cmd = app.add_subcommand("pp", "Run the preprocessor over a file");
    cmd->add_option("FILE", o->file, "The source ('-': standard input)")->required();
    cmd->add_option("-D", o->defines, "Define a macro: -DNAME or -DNAME=VALUE")->allow_extra_args(false);
    cmd->callback([o, &status] { status = guarded(o->file, [o] { return runPp(*o); }); });
}

} // namespace tmaintool
