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

void pretty(json::JSObject* v, unsigned depth, std::string& out) {
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
            pretty(it.getValue(), depth + 1, out);
        }
    } else {
        for (unsigned i = 0; i < v->getLength(); ++i) {
            out += i ? ",\n" + pad : pad;
            pretty(v->get(i), depth + 1, out);
        }
    }
    out += "\n" + std::string(2 * depth, ' ') + (object ? "}" : "]");
}

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
    pretty(root.get(), 0, out);
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
