// tmain objdump: shows an object stream file: its header, then the record
// tree. Records nested in an object's data sit among bytes only the class
// knows how to read, so they are found by looking for well-formed "OCNT" and
// "OREF" record heads that fit inside their parent.
#include "Tool.h"
#include <tmain/core/Serializer.h>
#include <tmain/json/JSObject.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/DeflateInputStream.h>

using namespace tarso;

namespace tmaintool {

namespace {

struct ObjdumpOptions {
    std::string file;
    bool json = false;
};

constexpr unsigned HEADER_SIZE = 36;
constexpr unsigned OID_INVALID = tarso::core::Serializer::OID_INVALID;

struct Record {
    unsigned offset = 0; ///< of the tag, in the content (after the header)
    std::string tag, type;
    unsigned id = 0, suid = 0, length = 0;
    bool hasSerialVersion = false;
    unsigned serialVersion = 0; ///< the first raw 4 bytes of the class data
    unsigned size = 0;          ///< tag to end of data
    std::vector<Record> children;
};

class Reader {
public:
    Reader(const std::string& data, bool bigEndian, bool hasSUID)
        : mData(data), mBig(bigEndian), mHasSUID(hasSUID) {}

    unsigned u32(size_t at, bool raw = false) const {
        const unsigned char* p = (const unsigned char*)mData.data() + at;
        return mBig && !raw ? (unsigned)p[0] << 24 | p[1] << 16 | p[2] << 8 | p[3]
                            : (unsigned)p[3] << 24 | p[2] << 16 | p[1] << 8 | p[0];
    }

    /// The record starting at `at` and ending by `end`; false when the bytes
    /// there are no well-formed record.
    bool parse(size_t at, size_t end, Record& r, unsigned depth) const {
        const size_t head = mHasSUID ? 16 : 12;
        if (at + 12 > end)
            return false;
        r.offset = (unsigned)at;
        r.tag = mData.substr(at, 4);
        r.id = u32(at + 4);
        if (r.tag == "OREF") {
            r.length = u32(at + 8);
            r.size = 12;
            return r.length == 0 && r.id != OID_INVALID;
        }
        if (r.tag != "OCNT" || at + head > end)
            return false;
        r.suid = mHasSUID ? u32(at + 8, true) : 0;
        r.length = u32(at + head - 4);
        if (r.length > end - at - head)
            return false;
        r.size = (unsigned)head + r.length;
        if (r.length == 0) // a null object
            return r.id == OID_INVALID && r.suid == 0;
        if (r.length < 4)
            return false;
        const unsigned nameLength = u32(at + head);
        if (nameLength > 255 || nameLength > r.length - 4)
            return false;
        r.type = mData.substr(at + head + 4, nameLength);
        for (char c : r.type)
            if ((unsigned char)c < 0x20 || (unsigned char)c > 0x7e)
                return false;
        const size_t dataStart = at + head + 4 + nameLength, dataEnd = at + r.size;
        if (dataStart + 4 <= dataEnd) {
            r.hasSerialVersion = true;
            r.serialVersion = u32(dataStart, true);
        }
        if (depth < 512)
            scan(dataStart, dataEnd, r.children, depth + 1);
        return true;
    }

    /// Every record that lies in [from, end), each one looked for after the last.
    void scan(size_t from, size_t end, std::vector<Record>& out, unsigned depth) const {
        for (size_t at = from; at + 12 <= end;) {
            size_t hit = mData.find('O', at);
            if (hit == std::string::npos || hit + 12 > end)
                return;
            Record r;
            if (parse(hit, end, r, depth)) {
                out.push_back(std::move(r));
                at = hit + out.back().size;
            } else {
                at = hit + 1;
            }
        }
    }

private:
    const std::string& mData;
    bool mBig, mHasSUID;
};

void printText(const Record& r, unsigned depth, std::string& out) {
    char line[160];
    if (r.tag == "OREF") {
        snprintf(line, sizeof(line), "@%u OREF -> #%u\n", r.offset, r.id);
    } else if (r.length == 0) {
        snprintf(line, sizeof(line), "@%u OCNT null\n", r.offset);
    } else {
        std::string id = r.id == OID_INVALID ? std::string("unregistered") : "#" + std::to_string(r.id);
        snprintf(line, sizeof(line), "@%u OCNT %s %s suid %u length %u", r.offset, id.c_str(), r.type.c_str(),
                 r.suid, r.length);
        out += std::string(2 * depth, ' ') + line;
        if (r.hasSerialVersion)
            out += ", serial version " + std::to_string(r.serialVersion);
        out += "\n";
        for (const Record& c : r.children)
            printText(c, depth + 1, out);
        return;
    }
    out += std::string(2 * depth, ' ') + line;
}

json::JSObject* toJson(const Record& r) {
    json::JSObject* o = new json::JSObject(json::JSObject::T_OBJECT);
    o->set("offset", r.offset);
    o->set("tag", r.tag.c_str());
    o->set("id", r.id == OID_INVALID ? -1 : (long long)r.id);
    if (r.tag == "OCNT") {
        o->set("suid", r.suid);
        o->set("length", r.length);
        if (r.length) {
            o->set("type", r.type.c_str());
            if (r.hasSerialVersion)
                o->set("serialVersion", r.serialVersion);
        }
        ::core::SmartPtr<json::JSObject> children(new json::JSObject(json::JSObject::T_ARRAY));
        for (const Record& c : r.children)
            children->append(toJson(c));
        o->set("children", children.get());
    }
    return o;
}

int runObjdump(const ObjdumpOptions& o) {
    const std::string file = readInput(o.file);
    if (file.size() < HEADER_SIZE)
        throw Failure{o.file, "too short for an object stream (" + std::to_string(file.size()) + " bytes)"};
    const std::string signature = file.substr(0, 4);
    if (signature != "TFLE" && signature != "TFBE")
        throw Failure{o.file, "not an object stream (signature is not TFLE or TFBE)"};
    tarso::core::Serializer::Version version{(unsigned char)file[4], (unsigned char)file[5],
                                             (unsigned char)file[6], (unsigned char)file[7]};
    Reader header(file, signature == "TFBE", false);
    const unsigned roots = header.u32(8), total = header.u32(12), contentSize = header.u32(16);
    const bool compressed = file[20] == 1;
    std::string content;
    if (!compressed) {
        content = file.substr(HEADER_SIZE);
    } else {
        // Inflated no further than the size the header promises.
        stream::DeflateInputStream in(new stream::ByteInputStream(file.data() + HEADER_SIZE,
                                                                  (unsigned)(file.size() - HEADER_SIZE),
                                                                  false),
                                      true, 16384, 65536, true);
        in.open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
        // Grown as the bytes come: a hostile size field allocates nothing.
        char buffer[65536];
        while (content.size() < contentSize) {
            unsigned n =
                in.read(buffer, 1, (unsigned)std::min<size_t>(sizeof(buffer), contentSize - content.size()));
            if (n == 0)
                break;
            content.append(buffer, n);
        }
        const size_t have = content.size();
        if (in.hasError())
            throw Failure{o.file,
                          "the compressed content is corrupt after " + std::to_string(have) + " bytes"};
    }
    Reader reader(content, signature == "TFBE", version > tarso::core::Serializer::VERSION_1_0_0_0);
    std::vector<Record> records;
    size_t at = 0;
    std::string trailing;
    for (unsigned i = 0; i < roots && at < content.size(); ++i) {
        Record r;
        if (!reader.parse(at, content.size(), r, 0)) {
            trailing = "no well-formed record at content offset " + std::to_string(at);
            break;
        }
        at += r.size;
        records.push_back(std::move(r));
    }
    std::string out;
    if (o.json) {
        ::core::SmartPtr<json::JSObject> root(new json::JSObject(json::JSObject::T_OBJECT));
        ::core::SmartPtr<json::JSObject> h(new json::JSObject(json::JSObject::T_OBJECT)),
            list(new json::JSObject(json::JSObject::T_ARRAY));
        h->set("signature", signature.c_str());
        h->set("version", version.toString().c_str());
        h->set("rootCount", roots);
        h->set("totalCount", total);
        h->set("contentSize", contentSize);
        h->set("compressed", compressed);
        for (const Record& r : records)
            list->append(toJson(r));
        root->set("header", h.get());
        root->set("records", list.get());
        if (!trailing.empty())
            root->set("problem", trailing.c_str());
        prettyJson(root.get(), 0, out);
        out += "\n";
    } else {
        char line[200];
        snprintf(line, sizeof(line), "%s version %s, %u root objects, %u records, content %u bytes%s\n",
                 signature.c_str(), version.toString().c_str(), roots, total, contentSize,
                 compressed ? ", deflate-compressed" : "");
        out = line;
        for (const Record& r : records)
            printText(r, 0, out);
        if (!trailing.empty())
            out += trailing + "\n";
    }
    writeStdout(out.data(), out.size());
    if (!trailing.empty())
        throw Failure{o.file, trailing};
    return EXIT_OK;
}

} // namespace

void addObjdump(CLI::App& app, int& status) {
    auto o = std::make_shared<ObjdumpOptions>();
    CLI::App* cmd = app.add_subcommand("objdump", "Show an object stream file: header and record tree");
    cmd->add_option("FILE", o->file, "The file ('-': standard input)")->required();
    cmd->add_flag("--json", o->json, "Machine-readable output");
    cmd->callback([o, &status] { status = guarded(o->file, [o] { return runObjdump(*o); }); });
}

} // namespace tmaintool
