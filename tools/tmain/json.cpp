// tmain json: validates JSON through the JSON model and pretty-prints it.
#include "Tool.h"
#include <tmain/json/JSObject.h>
#include <tmain/stream/ByteInputStream.h>

using namespace tarso;

namespace tmaintool {

namespace {

struct JsonOptions {
    std::string file;
    bool check = false;
};

int runJson(const JsonOptions& o) {
    std::string text = readInput(o.file);
    stream::ByteInputStream in(text.data(), (unsigned)text.size(), false);
    in.open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    ::core::SmartPtr<json::JSObject> root(json::JSObject::parse(&in));
    if (o.check)
        return EXIT_OK;
    // The compact dump first: it refuses cycles and runaway depth.
    std::string compact, out;
    root->dump(compact);
    prettyJson(root.get(), 0, out);
    out += "\n";
    writeStdout(out.data(), out.size());
    return EXIT_OK;
}

} // namespace

void addJson(CLI::App& app, int& status) {
    auto o = std::make_shared<JsonOptions>();
    CLI::App* cmd = app.add_subcommand("json", "Validate and pretty-print JSON");
    cmd->add_option("FILE", o->file, "The JSON file ('-': standard input)")->required();
    cmd->add_flag("--check", o->check, "Only validate: no output, exit status 0 or 1");
    cmd->callback([o, &status] { status = guarded(o->file, [o] { return runJson(*o); }); });
}

} // namespace tmaintool
