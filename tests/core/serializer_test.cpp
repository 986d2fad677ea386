// Object stream: byte-exact records in both byte orders, round trips of shared
// and cyclic graphs, the older record layouts, files, and hostile input.
#include "../support/TestSupport.h"
#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <tmain/core/NamedObject.h>
#include <tmain/core/ObjectFactory.h>
#include <tmain/core/Serializer.h>
#include <tmain/foundation/Exception.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/ByteOutputStream.h>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/File.h>
#include <tmain/vfs/SimpleFileSystem.h>
#include <vector>

namespace tc = tarso::core;
namespace ts = tarso::stream;
using tc::NamedObject;
using tc::Object;
using tc::Serializer;
using tmaintest::messageOf;

namespace {

// Two owned children, a non-owning back pointer and a loose object written
// unregistered. Serial version 7; version 6 had no right child.
class Node : public NamedObject {
    TMAIN_TYPE()
    TMAIN_SERIAL_IDENTITY(7, 2)
public:
    explicit Node(const char* name = "", int value = 0) : NamedObject(name), mValue(value) {}
    int mValue;
    core::SmartPtr<Node> mLeft, mRight;
    Node* mBack = nullptr;
    core::SmartPtr<NamedObject> mLoose;
    void serialize(ts::OutputStream* out, Serializer* s) const override {
        checkWrite(tc::writeRawSUID(out, mSUID), "writeSUID");
        NamedObject::serialize(out, s);
        checkWrite(out->write(mValue), "mValue");
        s->writeObject(mLeft.get(), out, true);
        s->writeObject(mRight.get(), out, true);
        s->writeObject(mBack, out, true);
        s->writeObject(mLoose.get(), out, false);
    }
    void deserialize(ts::InputStream* in, Serializer* s) override {
        unsigned suid = 0;
        checkRead(tc::readRawSUID(in, suid), "readSUID");
        getDeserializer(suid)(this, in, s);
    }
    void deserializeLegacy1(ts::InputStream* in, Serializer* s, unsigned suid) override {
        getDeserializer(suid)(this, in, s);
    }
    void deserializeLegacy0(ts::InputStream* in, Serializer* s) override {
        NamedObject::deserializeLegacy0(in, s);
        readFields(in, s, true);
    }

private:
    template <bool WITH_RIGHT>
    static void readVersion(tc::Serializable* o, ts::InputStream* in, Serializer* s) {
        static_cast<Node*>(o)->NamedObject::deserialize(in, s);
        static_cast<Node*>(o)->readFields(in, s, WITH_RIGHT);
    }
    void readFields(ts::InputStream* in, Serializer* s, bool withRight) {
        checkRead(in->read(mValue), "mValue");
        mLeft = static_cast<Node*>(s->readObject(in, Node::TYPE));
        if (withRight)
            mRight = static_cast<Node*>(s->readObject(in, Node::TYPE));
        mBack = static_cast<Node*>(s->readObject(in, Node::TYPE));
        mLoose = static_cast<NamedObject*>(s->readObject(in, NamedObject::TYPE));
    }
};
const core::Type Node::TYPE("sertest::Node", &NamedObject::TYPE);
const tc::DeserializerEntry Node::DESERIALIZER_LIST[2] = {{6, &Node::readVersion<false>},
                                                          {7, &Node::readVersion<true>}};

// Reflected but never registered with the factory.
class Ghost : public NamedObject {
    TMAIN_TYPE()
};
const core::Type Ghost::TYPE("sertest::Ghost", &NamedObject::TYPE);

const std::string NAME255 = "sertest::" + std::string(246, 'x');
const std::string NAME256 = NAME255 + "y";
template <int N> class Long : public Object { TMAIN_TYPE() };
template <> const core::Type Long<255>::TYPE(NAME255.c_str(), &Object::TYPE);
template <> const core::Type Long<256>::TYPE(NAME256.c_str(), &Object::TYPE);
TMAIN_REGISTER_CREATABLE(Node);
TMAIN_REGISTER_CREATABLE(Long<255>);

tc::ObjectFactory<Object> gFactory;
const char* NAMED = "tarso::core::NamedObject";
const char* NODE = "sertest::Node";
const unsigned NONE = Serializer::OID_INVALID;
const Serializer::Version& V2 = Serializer::VERSION_1_0_0_2;

// Expected streams, built field by field; `version` is the last version byte.
struct Fmt {
    bool big;
    int version;
    std::string u32(unsigned v) const {
        std::string s;
        for (int i = 0; i < 4; ++i)
            s += (char)(big ? v >> (24 - 8 * i) : v >> (8 * i));
        return s;
    }
    static std::string le32(unsigned v) { return Fmt{false, 2}.u32(v); }
    std::string str(const std::string& s) const { return u32((unsigned)s.size()) + s; }
    std::string stream(unsigned roots, unsigned total, const std::string& content) const {
        return (big ? "TFBE" : "TFLE") + std::string("\x01\x00\x00", 3) + (char)version + u32(roots) +
               u32(total) + u32((unsigned)content.size()) + std::string(16, '\0') + content;
    }
    std::string rec(unsigned id, unsigned suid, const std::string& type, const std::string& data) const {
        return "OCNT" + u32(id) + (version > 0 ? le32(suid) : "") +
               u32((unsigned)(4 + type.size() + data.size())) + str(type) + data;
    }
    std::string relength(std::string record, unsigned length) const {
        return record.replace(12, 4, u32(length));
    }
    std::string null() const { return "OCNT" + u32(NONE) + (version > 0 ? le32(0) : "") + u32(0); }
    std::string nulls(int n) const { return n > 0 ? null() + nulls(n - 1) : ""; }
    std::string ref(unsigned id) const { return "OREF" + u32(id) + u32(0); }
    // NamedObject's data: its SUID, Object's SUID, the dynamic type name, the name.
    std::string named(const std::string& type, const std::string& name) const {
        return le32(2) + le32(2) + str(type) + str(name);
    }
    std::string node(const std::string& name, int value, const std::string& children) const {
        return le32(7) + named(NODE, name) + u32((unsigned)value) + children;
    }
    std::string namedRec(unsigned id, const std::string& name) const {
        return rec(id, 2, NAMED, named(NAMED, name));
    }
    std::string nodeRec(unsigned id, const std::string& name, int value, const std::string& children) const {
        return rec(id, 7, NODE, node(name, value, children));
    }
};
const Fmt LE{false, 2};

// A memory stream the serializer does not recognise: lengths are patched by seeking.
struct SeekingBytes : ts::ByteOutputStream {};
std::string writeRoots(Serializer& s, bool big = false, bool seeking = false) {
    SeekingBytes seekingOut;
    ts::ByteOutputStream plainOut;
    ts::ByteOutputStream& out = seeking ? seekingOut : plainOut;
    out.setEndianness(tarso::platform::Endianness(big));
    out.open(ts::Stream::OM_WRITE | ts::Stream::OM_BINARY);
    s.write(&out, true);
    return tmaintest::bytesOf(out);
}

// Writes the roots with a fresh serializer (which frees objects only it holds).
std::string writeObjects(std::initializer_list<Object*> roots, bool big = false,
                         const Serializer::Version& version = V2, bool seeking = false) {
    Serializer s(&gFactory);
    s.setVersion(version);
    for (Object* o : roots)
        s.addObject(o);
    return writeRoots(s, big, seeking);
}
void readRoots(Serializer& s, const std::string& bytes) {
    ts::ByteInputStream in(bytes.data(), (unsigned)bytes.size(), false);
    s.read(&in, true);
}
template <class E = core::Exception> std::string readError(Serializer& r, const std::string& bytes) {
    return messageOf<E>([&] { readRoots(r, bytes); });
}
bool expectBytes(const std::string& expected, const std::string& actual, const std::string& what) {
    auto d = std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
    const bool same = d.first == expected.end() && d.second == actual.end();
    EXPECT_TRUE(same) << what << ": first difference at offset " << (d.first - expected.begin());
    return same;
}

// A reader's roots written again at 1.0.0.2 by a copy (reading left identifiers in the maps).
std::string rewrite(Serializer& r, bool big = false) {
    r.setVersion(V2);
    Serializer copy(r);
    return writeRoots(copy, big);
}
std::string readBack(Serializer& r, const std::string& bytes) {
    readRoots(r, bytes);
    return rewrite(r);
}

// Raw deflate (no zlib header or checksum) by python3; inflating fails on trailing bytes or no end.
std::string pythonRaw(const tmaintest::TempDir& tmp, bool deflate, const std::string& data) {
    tmaintest::writeFile(tmp.file("raw.in"), data);
    return tmaintest::outputOf(
        std::string("python3 -c 'import sys, zlib; i = open(sys.argv[1], \"rb\").read(); ") +
        (deflate ? "c = zlib.compressobj(9, zlib.DEFLATED, -15); o = c.compress(i) + c.flush(); "
                 : "d = zlib.decompressobj(-15); o = d.decompress(i) + d.flush(); "
                   "d.eof and not d.unused_data or sys.exit(3); ") +
        "sys.stdout.buffer.write(o)' " + tmp.file("raw.in"));
}

// The stream with its content deflated by python3 behind a header flagged compressed.
std::string pythonCompressed(const tmaintest::TempDir& tmp, const std::string& stream) {
    return stream.substr(0, 20) + '\1' + std::string(15, '\0') + pythonRaw(tmp, true, stream.substr(36));
}
std::string mismatch(const char* type, unsigned expected, unsigned found) {
    return core::formatMessagef(
        "Stream offset mismatch for object type '%s' (expected %8X, found %8X). Forcing "
        "stream position adjustment.",
        type, expected, found);
}

// Hostile-input cases log an error each; keep the console quiet meanwhile.
struct QuietConsole {
    logging::ConsoleAppender* c = logging::Logger::getRootLogger().getConsoleAppender();
    logging::Level old = c ? c->getThreshold() : logging::LEVEL_OFF;
    QuietConsole() { c ? c->setThreshold(logging::LEVEL_OFF) : void(); }
    ~QuietConsole() { c ? c->setThreshold(old) : void(); }
};

// a -> (left s, right b, loose L); b -> (left s, back a, loose L); roots a, s.
struct Graph {
    core::SmartPtr<Node> a{new Node("a", 1)}, s{new Node("s", 2)}, b{new Node("b", 3)};
    Graph() {
        a->mLeft = b->mLeft = s;
        a->mRight = b;
        a->mLoose = b->mLoose = new NamedObject("loose");
        b->mBack = a.get();
    }
    void fill(Serializer& ser) const {
        ser.reset();
        ser.setVersion(V2);
        ser.addObject(a.get());
        ser.addObject(s.get());
    }
    std::string expected(const Fmt& f) const {
        std::string loose = f.namedRec(NONE, "loose"), sRec = f.nodeRec(1, "s", 2, f.nulls(4));
        std::string bRec = f.nodeRec(2, "b", 3, f.ref(1) + f.null() + f.ref(0) + loose);
        return f.stream(2, 14, f.nodeRec(0, "a", 1, sRec + bRec + f.null() + loose) + f.ref(1));
    }
};

// A graph read back writes the same bytes again; the loose object came back as two copies.
void checkGraph(Serializer& r, const std::string& bytes, bool big = false) {
    ASSERT_TRUE(expectBytes(bytes, rewrite(r, big), "rewritten"));
    Node* a = static_cast<Node*>(r.getObject(0));
    EXPECT_NE(a->mLoose.get(), a->mRight->mLoose.get());
}

TEST(Serializer, ByteExactGraphInBothByteOrdersAndRoundTrip) {
    Graph g;
    for (bool big : {false, true}) {
        SCOPED_TRACE(big ? "TFBE" : "TFLE");
        Fmt f{big, 2};
        Serializer ser(&gFactory), r(&gFactory);
        g.fill(ser);
        const std::string bytes = writeRoots(ser, big);
        expectBytes(g.expected(f), bytes, "graph");
        // Without reset() the identifiers stay: every root becomes a reference.
        expectBytes(f.stream(2, 2, f.ref(0) + f.ref(1)), writeRoots(ser, big), "second write");
        ts::ByteInputStream in(bytes.data(), (unsigned)bytes.size(), false);
        r.read(&in, true);
        EXPECT_EQ(tarso::platform::Endianness(big), in.getEndianness());
        EXPECT_EQ(14u, r.getTotalObjectCount());
        checkGraph(r, bytes, big);
        // Records ending at a ByteOutputStream's capacity (256 multiples) get their lengths patched.
        for (bool seeking : {false, true})
            for (unsigned n = 120; n < 150; ++n) {
                const std::string name(n, 'n');
                expectBytes(f.stream(1, 1, f.namedRec(0, name)),
                            writeObjects({new NamedObject(name.c_str())}, big, V2, seeking),
                            "name length " + std::to_string(n));
            }
        g.fill(ser);
        expectBytes(g.expected(f), writeRoots(ser, big, true), "graph by seeking");
        // Without a header nothing is read, not even the signature.
        ts::ByteInputStream bare(bytes.data(), (unsigned)bytes.size(), false);
        r.read(&bare, false);
        EXPECT_JOINED("0|0|", r.getObjectCount(), bare.tell());
    }
}

TEST(Serializer, RecordHeadersPerVersionAndOlderLayoutsUpgraded) {
    // A null root: the SerialUID field exists from 1.0.0.1 on.
    for (unsigned char v = 0; v < 3; ++v) {
        Serializer r(&gFactory);
        const std::string bytes = writeObjects({nullptr}, false, Serializer::Version{1, 0, 0, v});
        expectBytes(Fmt{false, v}.stream(1, 1, Fmt{false, v}.null()), bytes,
                    "null root " + std::to_string(v));
        readRoots(r, bytes);
        EXPECT_JOINED("0|1|", r.getObjectCount(), r.getTotalObjectCount());
    }
    // The layout test only compares each byte with the one before it.
    EXPECT_JOINED("1.0.0.2|1|0|1|1|", V2.toString(), V2 > Serializer::VERSION_1_0_0_1,
                  Serializer::VERSION_1_0_0_0 > Serializer::VERSION_1_0_0_0,
                  Serializer::Version{1, 0, 1, 0} > Serializer::Version{2, 0, 0, 0},
                  Serializer::Version{2, 0, 0, 0} > Serializer::Version{1, 9, 9, 9});
    // 1.0.0.0: no SerialUID anywhere; NamedObject is the type name and the name.
    Fmt f0{false, 0}, f1{false, 1};
    const std::string s0 = f0.rec(1, 0, NODE, f0.str(NODE) + f0.str("s") + f0.u32(2) + f0.nulls(4));
    const std::string n0 = f0.rec(NONE, 0, NAMED, f0.str(NAMED) + f0.str("n"));
    const std::string a0 =
        f0.rec(0, 0, NODE, f0.str(NODE) + f0.str("a") + f0.u32(1) + s0 + f0.null() + f0.ref(0) + n0);
    // 1.0.0.1: the header's SerialUID (the outermost class's) chooses the reader; data starts with
    // the base class. Version 6 of Node had no right child.
    const std::string y1 =
        f1.rec(1, 7, NODE, f1.named(NODE, "y") + f1.u32(6) + f1.nulls(2) + f1.ref(0) + f1.null());
    const std::string m1 = f1.rec(NONE, 2, NAMED, Fmt::le32(2) + f1.str(NAMED) + f1.str("m"));
    const std::string x1 = f1.rec(0, 6, NODE, f1.named(NODE, "x") + f1.u32(5) + y1 + f1.null() + m1);
    // Read and written again at 1.0.0.2, where Node has its right child.
    const std::pair<std::string, std::string> cases[] = {
        {f0.stream(1, 9, a0),
         LE.node("a", 1,
                 LE.nodeRec(1, "s", 2, LE.nulls(4)) + LE.null() + LE.ref(0) + LE.namedRec(NONE, "n"))},
        {f1.stream(1, 8, x1), LE.node("x", 5,
                                      LE.nodeRec(1, "y", 6, LE.nulls(2) + LE.ref(0) + LE.null()) +
                                          LE.nulls(2) + LE.namedRec(NONE, "m"))},
    };
    for (const auto& c : cases) {
        Serializer r(&gFactory);
        expectBytes(LE.stream(1, 9, LE.rec(0, 7, NODE, c.second)), readBack(r, c.first), "upgraded");
    }
}

TEST(Serializer, UnknownTypesBadReferencesAndOffsetMismatches) {
    const std::string after = LE.namedRec(1, "after");
    // Unknown data that looks like records must not be parsed.
    const std::string junk = "OCNT" + LE.u32(5) + "OREF" + std::string(20, '\x7f');
    tmaintest::ScopedLogCapture log;
    Serializer r(&gFactory);
    expectBytes(LE.stream(2, 2, LE.namedRec(0, "after") + LE.ref(0)),
                readBack(r, LE.stream(5, 5,
                                      LE.rec(0, 3, "no::Such", junk) + after + LE.ref(0) + LE.ref(0x1234) +
                                          LE.ref(1))),
                "known ones");
    auto warned = [&](const std::string& m) { return log->contains(m, logging::LEVEL_WARN); };
    for (const char* m :
         {"Unable to create object instance for type name 'no::Such'. Skipping object stream read.",
          "Unresolved object reference (#       0)", "Unresolved object reference (#    1234)",
          "NULL object read from stream at index 0!", "NULL object read from stream at index 3!"})
        EXPECT_TRUE(warned(m)) << m;
    EXPECT_TRUE(
        log->contains("2/5 root-level objects read successfully from stream (5 total object references read)",
                      logging::LEVEL_INFO));
    // Identifiers far apart resolve, also once the ones in between have been used.
    std::string spread = LE.namedRec(1100, "far") + LE.namedRec(0xFFFFFFFEu, "last");
    for (unsigned id = 0; id < 150; ++id)
        spread += LE.namedRec(id, std::to_string(id));
    readRoots(
        r, LE.stream(156, 156,
                     spread + LE.namedRec(1200, "mid") + LE.ref(1100) + LE.ref(0xFFFFFFFEu) + LE.ref(149)));
    ASSERT_EQ(156u, r.getObjectCount());
    EXPECT_JOINED("1|1|1|", r.getObject(0) == r.getObject(153), r.getObject(1) == r.getObject(154),
                  r.getObject(151) == r.getObject(155));
    struct Lookups : Serializer {
        Lookups() : Serializer(&gFactory) {}
        using Serializer::getNextOID;
        using Serializer::getObjectByID;
        using Serializer::getOID;
    } lookups;
    EXPECT_JOINED(std::to_string(NONE) + "|1|0|0|", lookups.getOID(nullptr),
                  lookups.getObjectByID(0) == nullptr, lookups.getNextOID(r.getObject(0)),
                  lookups.getOID(r.getObject(0)));
    Serializer w(&gFactory);
    w.setVersion(V2);
    std::string records, refs;
    for (unsigned i = 0; i < 300; ++i) {
        w.addObject(new NamedObject(std::to_string(i).c_str()));
        records += LE.namedRec(i, std::to_string(i));
        refs += LE.ref(i);
    }
    for (unsigned i = 0; i < 300; ++i)
        w.addObject(w.getObject(i));
    expectBytes(LE.stream(600, 600, records + refs), writeRoots(w), "300 objects twice");
    // A class the factory cannot make, written by our writer, alone and inside a known one.
    core::SmartPtr<Node> node(new Node("next", 9));
    node->mLoose = new Ghost();
    log->clear();
    expectBytes(LE.stream(1, 5, LE.nodeRec(0, "next", 9, LE.nulls(4))),
                readBack(r, writeObjects({new Ghost(), node.get()})), "ghosts");
    EXPECT_TRUE(warned("type name 'sertest::Ghost'. Skipping object stream read."));
    EXPECT_FALSE(warned("Stream offset mismatch"));
    // A length ending 4 bytes early (the name's end is the next tag), exactly, or 4 bytes of padding
    // late: the reader warns and goes on where the length says.
    const std::string first = LE.namedRec(0, "OCNT");
    const unsigned end = 36 + (unsigned)first.size();
    for (int delta : {-4, 0, 4}) {
        log->clear();
        const std::string cut = LE.relength(first, (unsigned)(first.size() - 16 + delta)) +
                                std::string(std::max(delta, 0), 'p') + after.substr(std::max(-delta, 0));
        expectBytes(LE.stream(2, 2, first + after), readBack(r, LE.stream(2, 2, cut)), std::to_string(delta));
        EXPECT_EQ(delta != 0, warned(mismatch(NAMED, end + delta, end))) << delta;
    }
}

TEST(Serializer, FilesPlainAndCompressed) {
    TMAIN_REQUIRE_TOOL("python3");
    tmaintest::TempDir tmp;
    core::SmartPtr<tarso::vfs::SimpleFileSystem> fs(new tarso::vfs::SimpleFileSystem(tmp.path().c_str()));
    core::SmartPtr<tarso::vfs::File> flat(fs->create("objs/flat.tos", true));
    core::SmartPtr<tarso::vfs::File> packed(fs->create("objs/packed.tos", true));
    Graph g;
    Serializer w(&gFactory), r(&gFactory);
    const std::string plain = g.expected(LE);
    g.fill(w);
    w.write(flat.get(), V2, 0);
    expectBytes(plain, tmaintest::readFile(tmp.file("objs/flat.tos")), "plain file");
    g.fill(w);
    w.write(packed.get(), V2, 6);
    const std::string z = tmaintest::readFile(tmp.file("objs/packed.tos"));
    // The header stays readable: the counts and size of the plain content.
    EXPECT_EQ(plain.substr(0, 20) + '\1' + std::string(15, '\0'), z.substr(0, 36));
    EXPECT_FALSE(fs->exists("objs/packed.tos.z"));
    // Raw deflate follows: no zlib header, and python's raw inflater takes all of it.
    EXPECT_NE("\x78\x9c", z.substr(36, 2));
    expectBytes(plain.substr(36), pythonRaw(tmp, false, z.substr(36)), "inflated content");
    r.read(packed.get());
    checkGraph(r, plain);
    const std::string path = packed->getPath();
    EXPECT_EQ(path.substr(0, path.rfind('/')), r.getCurrentRootPath());
    tmaintest::writeFile(tmp.file("objs/python.tos"), pythonCompressed(tmp, plain));
    core::SmartPtr<tarso::vfs::File> python(fs->lookup("objs/python.tos"));
    ASSERT_TRUE(python);
    r.read(python.get());
    checkGraph(r, plain);
    tmaintest::ScopedLogCapture log;
    EXPECT_EQ(Serializer::CR_ALREADY_COMPRESSED, w.doCompression(packed.get(), nullptr, 6));
    EXPECT_TRUE(log->contains("File '" + path + "' is already compressed."));
    for (const auto& u : {std::make_pair(Serializer::Version{2, 0, 0, 0}, "2.0.0.0"),
                          std::make_pair(Serializer::Version{1, 0, 1, 0}, "1.0.1.0")})
        EXPECT_EQ(std::string("Unsupported serializer version: ") + u.second,
                  messageOf<core::IllegalArgumentException>([&] { w.write(flat.get(), u.first, 0); }));
}

// An object that reads past its record: the reader warns, goes back to the record's end and reads
// what follows again. A record read again that sends the reader back once more ends the read.
TEST(Serializer, OverReadRecoveryAndLoops) {
    TMAIN_REQUIRE_TOOL("python3");
    tmaintest::ScopedLogCapture log;
    tmaintest::TempDir tmp;
    // The first Node takes the next root record as its loose child; with a long name that record
    // is larger than what a compressed stream keeps for going back.
    for (const std::string& name : {std::string("after"), std::string(70000, 'a')}) {
        const std::string shortNode = LE.nodeRec(0, "short", 5, LE.nulls(3)), after = LE.namedRec(1, name);
        const std::string rest = after + LE.ref(1) + LE.nodeRec(2, "last", 6, LE.nulls(3) + LE.ref(1));
        const std::string bytes = LE.stream(4, 12, shortNode + rest);
        // Read twice, the record made two objects; references resolve to the later one.
        const std::string fixed =
            LE.stream(4, 12, LE.nodeRec(0, "short", 5, LE.nulls(3) + LE.namedRec(NONE, name)) + rest);
        const std::string streams[] = {bytes, pythonCompressed(tmp, bytes)};
        for (const std::string& stream : streams) {
            log->clear();
            Serializer r(&gFactory);
            ASSERT_TRUE(expectBytes(fixed, readBack(r, stream), "read back"));
            EXPECT_NE(static_cast<Node*>(r.getObject(0))->mLoose.get(), r.getObject(1));
            // Positions in a compressed stream count from the end of the header.
            const unsigned end = (&stream == streams ? 36 : 0) + (unsigned)shortNode.size();
            EXPECT_TRUE(
                log->contains(mismatch(NODE, end, end + (unsigned)after.size()), logging::LEVEL_WARN));
            EXPECT_TRUE(log->contains(
                "4/4 root-level objects read successfully from stream (12 total object references read)"));
        }
    }
    // Many such records: a plain stream goes back as often as needed; an inflater (which starts
    // over) gives up before the work grows with the square of the content.
    std::string many;
    for (int k = 0; k < 40; ++k)
        many += LE.nodeRec(NONE, "r", k, "") + LE.nulls(3) + LE.namedRec(NONE, std::string(70000, 'c'));
    Serializer r(&gFactory);
    readRoots(r, LE.stream(200, 0, many));
    EXPECT_EQ(80u, r.getObjectCount());
    EXPECT_EQ(0u, readError<ts::IOException>(r, pythonCompressed(tmp, LE.stream(200, 0, many)))
                      .find("Stream read back too often ("));
    // A record whose length runs back to its own start, unknown (skipped) or known (read), with a
    // huge root count: the second pass ends the read.
    for (const char* type : {"no::Such", NAMED}) {
        const std::string self = LE.relength(LE.rec(0, 2, type, LE.named(type, "n")), 0u - 16u);
        EXPECT_EQ("Object record at       24 read twice. Object stream read aborted",
                  readError<ts::IOException>(r, LE.stream(0xFFFFFFFFu, 1, self)))
            << type;
        EXPECT_EQ(2u, r.getTotalObjectCount()) << type;
    }
    // Lengths that end where the first child starts: without the guard, work doubles per level.
    std::string chain;
    for (int k = 0; k < 48; ++k)
        chain += LE.nodeRec(NONE, "", k, "");
    const std::string m = readError<ts::IOException>(r, LE.stream(1, 1, chain + LE.nulls(8)));
    EXPECT_EQ(0u, m.find("Object record at ")) << m;
    EXPECT_NE(std::string::npos, m.find(" read twice. Object stream read aborted")) << m;
    EXPECT_GT(200u, r.getTotalObjectCount());
}

// Class data arrays of bools and longs go through the stream in chunks of 1024 and 256.
TEST(Serializer, ClassDataArraysOfBoolsAndLongs) {
    bool bools[1500], boolsBack[1500];
    long longs[600], longsBack[600];
    for (unsigned i = 0; i < 1500; ++i)
        bools[i] = i % 3 == 0;
    for (unsigned i = 0; i < 600; ++i)
        longs[i] = (long)i * 1000003 - 300000000;
    for (bool big : {false, true}) {
        std::string expected(bools, bools + 1500);
        for (long l : longs)
            expected += Fmt{big, 2}.u32((unsigned)l);
        ts::ByteOutputStream out;
        out.setEndianness(tarso::platform::Endianness(big));
        out.open(ts::Stream::OM_WRITE);
        ASSERT_TRUE(out.write(bools, 1500) && out.write(longs, 600));
        const std::string bytes = tmaintest::bytesOf(out);
        expectBytes(expected, bytes, big ? "arrays TFBE" : "arrays TFLE");
        ts::ByteInputStream in(bytes.data(), (unsigned)bytes.size(), false);
        in.setEndianness(out.getEndianness());
        ASSERT_TRUE(in.read(boolsBack, 1500) && in.read(longsBack, 600));
        EXPECT_TRUE(std::equal(bools, bools + 1500, boolsBack) && std::equal(longs, longs + 600, longsBack));
        // A short read fails and keeps the whole elements it got.
        in.setInput(bytes.data() + 1500, 4 * 300 + 2);
        longsBack[300] = 7;
        EXPECT_FALSE(in.read(longsBack, 600));
        EXPECT_TRUE(std::equal(longs, longs + 300, longsBack) && longsBack[300] == 7);
    }
}

TEST(Serializer, ResolvePath) {
    Serializer s(&gFactory);
    auto resolve = [&](const char* path, const core::Type* type = nullptr) {
        std::string out = "(unset)";
        s.resolvePath(path, type, out);
        return out;
    };
    EXPECT_EQ("a/b.txt", resolve("a/b.txt")); // no root path yet
    s.setCurrentRootPath("/data/maps");
    EXPECT_EQ("/data/maps/a/b.txt", resolve("a/b.txt"));
    EXPECT_EQ("/abs/c", resolve("/abs/c"));
    EXPECT_EQ("", resolve(nullptr));
    std::string calls;
    bool answer = false;
    s.setPathResolveCallback(Serializer::PathResolveCallback(
        [&](Serializer* who, const char* path, const core::Type* type, std::string& o) {
            calls += std::string(path) + (type ? type->getName() : "-") + (who == &s ? ";" : "(other);");
            o = std::string("cb:") + path;
            return answer;
        }));
    EXPECT_EQ("/data/maps/x", resolve("x", &Node::TYPE)); // declined: kept, default used
    answer = true;
    EXPECT_EQ("cb:y", resolve("y", &Node::TYPE));
    EXPECT_EQ("/data/maps/z", resolve("z")); // used up
    EXPECT_EQ("xsertest::Node;ysertest::Node;", calls);
}

TEST(Serializer, HostileStreamsAndLimits) {
    QuietConsole quiet;
    tmaintest::ScopedLogCapture log;
    const std::string good = Graph().expected(LE);
    // One reader throughout: a failed read leaves it usable.
    Serializer r(&gFactory);
    // Cut anywhere: one of our exceptions; a cut record header names its field, read or written.
    const char* fields[] = {"OCNT/OREF", "ObjectID", "SerialUID", "OCNT data length"};
    for (size_t n = 0; n < good.size(); ++n) {
        std::vector<char> cut(good.begin(), good.begin() + n); // exact size, so ASan sees overreads
        ts::ByteInputStream in(cut.data(), (unsigned)n, false);
        const std::string m = messageOf<core::Exception>([&] { r.read(&in, true); });
        EXPECT_NE("<no exception>", m) << "cut at " << n;
        EXPECT_TRUE(n < 36 || n >= 52 ||
                    m.find(std::string("]: ") + fields[(n - 36) / 4]) != std::string::npos)
            << m;
    }
    struct ShortBytes : ts::ByteOutputStream {
        unsigned limit = 0;
        using ts::ByteOutputStream::write;
        unsigned write(const void* b, unsigned size, unsigned count) override {
            unsigned n = std::min(size * count, limit > tell() ? limit - tell() : 0);
            return n ? ts::ByteOutputStream::write(b, 1, n) : 0;
        }
    };
    fields[0] = "OCNT";
    for (unsigned n = 36; n < 52; n += 2) {
        ShortBytes out;
        out.limit = n;
        out.open(ts::Stream::OM_WRITE);
        Serializer w(&gFactory);
        w.setVersion(V2);
        w.addObject(new NamedObject("n"));
        const std::string m = messageOf<ts::IOException>([&] { w.write(&out, true); });
        EXPECT_EQ(0u, m.find("Error serializing object [tarso::core::Serializer@")) << m;
        EXPECT_NE(std::string::npos, m.find(std::string("]: ") + fields[(n - 36) / 4])) << m;
    }
    // A missing tag after a huge count's one record, and after an unknown record running past the end.
    const std::string named = LE.namedRec(0, "n");
    for (const std::string& bytes :
         {LE.stream(0xFFFFFFFFu, 1, named),
          LE.stream(2, 2, LE.relength(LE.rec(0, 2, "no::Such", "abc"), 0x7FFFFFF0))}) {
        const std::string m = readError(r, bytes);
        EXPECT_EQ(0u, m.find("Error deserializing object [tarso::core::Serializer@")) << m;
        EXPECT_NE(std::string::npos, m.find("]: OCNT/OREF")) << m;
    }
    std::string deep = LE.null();
    for (int k = 0; k < 600; ++k)
        deep = LE.nodeRec(NONE, "", k, deep + LE.nulls(3));
    const std::string wrongType =
        "Invalid object type read (expected 'sertest::Node', found 'tarso::core::NamedObject')";
    const std::pair<std::string, std::string> cases[] = {
        {LE.stream(2, 2, named + "XXXX" + LE.u32(0) + LE.u32(0)), "Unknown stream signature 'XXXX'"},
        {"ABCD" + LE.stream(1, 1, named).substr(4),
         "Invalid stream signature (expected 'TFLE' or 'TFBE', found 'ABCD'"},
        {"TFLE" + std::string("\x01\x00\x01\x02", 4) + LE.stream(1, 1, named).substr(8),
         "Stream version mismatch (expected 1.0.0.0-1.0.0.2, found 1.0.1.2)"},
        // A reference to an object of another class is refused like a record of one.
        {LE.stream(1, 1, LE.nodeRec(1, "p", 0, named + LE.nulls(3))), wrongType},
        {LE.stream(2, 3, named + LE.nodeRec(1, "p", 0, LE.ref(0) + LE.nulls(3))), wrongType},
        {LE.stream(1, 1, deep), "Object stream nested deeper than 512 objects. Object stream read aborted"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.second, readError(r, c.first));
    Serializer noFactory(nullptr);
    EXPECT_EQ("No object factory set! Read operation aborted",
              readError<core::IllegalStateException>(noFactory, good));
    // A known record running past the end is read, and the position moved to the end with a warning.
    log->clear();
    expectBytes(LE.stream(1, 1, named), readBack(r, LE.stream(1, 1, LE.relength(named, 0x7FFFFFF0))), "far");
    EXPECT_TRUE(log->contains("Stream offset mismatch for object type 'tarso::core::NamedObject'"));
    // Type names up to 255 characters; longer ones are refused both ways.
    const std::string bytes = writeObjects({new Long<255>()});
    EXPECT_EQ(Fmt::le32(255) + NAME255, bytes.substr(52, 259));
    expectBytes(bytes, readBack(r, bytes), "255 characters");
    EXPECT_EQ("Type name too long ('" + NAME256 + "', 256>255 characters). Object stream read aborted",
              messageOf<core::IllegalArgumentException>([] { writeObjects({new Long<256>()}); }));
    EXPECT_TRUE(
        log->contains("Error writing object #0 to stream [tarso::core::Serializer@", logging::LEVEL_ERROR));
    EXPECT_EQ("Type name too long (256>255 characters). Object stream read aborted",
              readError<core::IllegalArgumentException>(
                  r, LE.stream(1, 1, LE.rec(0, 2, std::string(256, 'z'), std::string(40, 'z')))));
    EXPECT_TRUE(log->contains("Error reading object #0 from stream", logging::LEVEL_ERROR));
    // An object written unregistered that reaches itself never becomes an OREF.
    core::SmartPtr<Node> root(new Node("root", 1)), loop(new Node("loop", 2));
    root->mLoose = loop;
    loop->mLoose = loop;
    EXPECT_EQ("Object graph nested deeper than 512 objects. Object stream write aborted",
              messageOf<ts::IOException>([&] { writeObjects({root.get()}); }));
    loop->mLoose = nullptr;
}
} // namespace
