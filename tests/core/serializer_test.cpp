// Object stream: byte-exact records in both byte orders, round trips of shared
// and cyclic graphs, the older record layouts, files, and hostile input.
#include "../support/TestSupport.h"
#include <cstring>
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
using tc::Serializable;
using tc::Serializer;

namespace {

// A graph node: two owned children, a back pointer (not owning, so cycles make
// no reference cycles) and a loose object written with registerObject false.
// Serial version 7; version 6 had no right child. Records which reader ran.
class Node : public NamedObject {
    TMAIN_TYPE()
    TMAIN_SERIAL_IDENTITY(7, 2)
public:
    explicit Node(const char* name = "", int value = 0) : NamedObject(name), mValue(value) {}
    int mValue;
    core::SmartPtr<Node> mLeft, mRight;
    Node* mBack = nullptr;
    core::SmartPtr<NamedObject> mLoose;
    int mLayout = -1;
    unsigned mLayoutSUID = 0;

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
        mLayout = 2;
        getDeserializer(suid)(this, in, s);
    }
    void deserializeLegacy1(ts::InputStream* in, Serializer* s, unsigned suid) override {
        mLayout = 1;
        mLayoutSUID = suid;
        getDeserializer(suid)(this, in, s);
    }
    void deserializeLegacy0(ts::InputStream* in, Serializer* s) override {
        mLayout = 0;
        NamedObject::deserializeLegacy0(in, s);
        readFields(in, s, true);
    }

private:
    static void readV6(Serializable* o, ts::InputStream* in, Serializer* s) {
        static_cast<Node*>(o)->NamedObject::deserialize(in, s);
        static_cast<Node*>(o)->readFields(in, s, false);
    }
    static void readV7(Serializable* o, ts::InputStream* in, Serializer* s) {
        static_cast<Node*>(o)->NamedObject::deserialize(in, s);
        static_cast<Node*>(o)->readFields(in, s, true);
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
const tc::DeserializerEntry Node::DESERIALIZER_LIST[2] = {{6, &Node::readV6}, {7, &Node::readV7}};

// Writes two integers after its Object data and reads sReadInts of them.
class Sloppy : public Object {
    TMAIN_TYPE()
public:
    static int sReadInts;
    void serialize(ts::OutputStream* out, Serializer* s) const override {
        Object::serialize(out, s);
        checkWrite(out->write(11) && out->write(22), "ints");
    }
    void deserialize(ts::InputStream* in, Serializer* s) override {
        Object::deserialize(in, s);
        int v;
        for (int i = 0; i < sReadInts; ++i)
            checkRead(in->read(v), "ints");
    }
};
const core::Type Sloppy::TYPE("sertest::Sloppy", &Object::TYPE);
int Sloppy::sReadInts = 2;

// Reflected but never registered with the factory.
class Ghost : public NamedObject {
    TMAIN_TYPE()
public:
    Ghost() : NamedObject("boo") {}
};
const core::Type Ghost::TYPE("sertest::Ghost", &NamedObject::TYPE);

const std::string NAME255 = "sertest::" + std::string(246, 'x');
const std::string NAME256 = NAME255 + "y";
class Long255 : public Object {
    TMAIN_TYPE()
};
const core::Type Long255::TYPE(NAME255.c_str(), &Object::TYPE);
class Long256 : public Object {
    TMAIN_TYPE()
};
const core::Type Long256::TYPE(NAME256.c_str(), &Object::TYPE);

TMAIN_REGISTER_CREATABLE(Node);
TMAIN_REGISTER_CREATABLE(Sloppy);
TMAIN_REGISTER_CREATABLE(Long255);

tc::ObjectFactory<Object> gFactory;
const char* NAMED = "tarso::core::NamedObject";
const char* NODE = "sertest::Node";
const unsigned NONE = Serializer::OID_INVALID;

// Expected streams, built field by field without our writer. `version` is the
// last version byte (0, 1 or 2); `big` selects "TFBE".
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
    std::string header(unsigned roots, unsigned total, size_t content, bool packed = false) const {
        std::string h = big ? "TFBE" : "TFLE";
        h += std::string("\x01\x00\x00", 3) + (char)version;
        h +=
            u32(roots) + u32(total) + u32((unsigned)content) + (char)(packed ? 1 : 0) + std::string(15, '\0');
        return h;
    }
    std::string stream(unsigned roots, unsigned total, const std::string& content) const {
        return header(roots, total, content.size()) + content;
    }
    std::string rec(unsigned id, unsigned suid, const std::string& type, const std::string& data) const {
        std::string r = "OCNT" + u32(id) + (version > 0 ? le32(suid) : "");
        return r + u32((unsigned)(4 + type.size() + data.size())) + str(type) + data;
    }
    std::string null() const { return "OCNT" + u32(NONE) + (version > 0 ? le32(0) : "") + u32(0); }
    std::string ref(unsigned id) const { return "OREF" + u32(id) + u32(0); }
    // NamedObject's data for the current layout: its SUID, Object's SUID, the
    // dynamic type name, the name.
    std::string named(const std::string& type, const std::string& name) const {
        return le32(2) + le32(2) + str(type) + str(name);
    }
    std::string node(const std::string& name, int value, const std::string& children) const {
        return le32(7) + named(NODE, name) + u32((unsigned)value) + children;
    }
};

std::string writeRoots(Serializer& s, bool big = false) {
    ts::ByteOutputStream out;
    out.setEndianness(big ? tarso::platform::ENDIAN_BIG : tarso::platform::ENDIAN_LITTLE);
    out.open(ts::Stream::OM_WRITE | ts::Stream::OM_BINARY);
    s.write(&out, true);
    return std::string((const char*)out.getBytes(), out.getSize());
}

void readRoots(Serializer& s, const std::string& bytes) {
    ts::ByteInputStream in(bytes.data(), (unsigned)bytes.size(), false);
    s.read(&in, true);
}

void expectBytes(const std::string& expected, const std::string& actual, const char* what) {
    EXPECT_EQ(expected.size(), actual.size()) << what;
    for (size_t i = 0; i < expected.size() && i < actual.size(); ++i)
        if (expected[i] != actual[i]) {
            ADD_FAILURE() << what << ": first difference at offset " << i;
            return;
        }
}

template <class E, class F> std::string messageOf(F f) {
    try {
        f();
    } catch (const E& e) {
        return e.getMessage();
    }
    return "(nothing thrown)";
}

// Hostile-input cases log an error each; keep the console quiet meanwhile.
struct QuietConsole {
    logging::ConsoleAppender* c = logging::Logger::getRootLogger().getConsoleAppender();
    logging::Level old = c ? c->getThreshold() : logging::LEVEL_OFF;
    QuietConsole() {
        if (c)
            c->setThreshold(logging::LEVEL_OFF);
    }
    ~QuietConsole() {
        if (c)
            c->setThreshold(old);
    }
};

// a -> (left s, right b, loose L); b -> (left s, back a, loose L); roots a, s.
struct Graph {
    core::SmartPtr<Node> a{new Node("a", 1)}, s{new Node("s", 2)}, b{new Node("b", 3)};
    core::SmartPtr<NamedObject> loose{new NamedObject("loose")};
    Graph() {
        a->mLeft = s;
        a->mRight = b;
        a->mLoose = loose;
        b->mLeft = s;
        b->mBack = a.get();
        b->mLoose = loose;
    }
    void addTo(Serializer& ser) const {
        ser.addObject(a.get());
        ser.addObject(s.get());
    }
    std::string expected(const Fmt& f) const {
        std::string looseRec = f.rec(NONE, 2, NAMED, f.named(NAMED, "loose"));
        std::string sRec = f.rec(1, 7, NODE, f.node("s", 2, f.null() + f.null() + f.null() + f.null()));
        std::string bRec = f.rec(2, 7, NODE, f.node("b", 3, f.ref(1) + f.null() + f.ref(0) + looseRec));
        std::string aRec = f.rec(0, 7, NODE, f.node("a", 1, sRec + bRec + f.null() + looseRec));
        return f.stream(2, 14, aRec + f.ref(1));
    }
};

void checkGraph(Serializer& r) {
    ASSERT_EQ(2u, r.getObjectCount());
    Node* a = dynamic_cast<Node*>(r.getObject(0));
    ASSERT_NE(nullptr, a);
    EXPECT_STREQ("a", a->getName());
    EXPECT_EQ(1, a->mValue);
    ASSERT_TRUE(a->mLeft && a->mRight && a->mLoose);
    EXPECT_EQ(r.getObject(1), a->mLeft.get()); // one instance, referenced twice
    EXPECT_EQ(a->mLeft.get(), a->mRight->mLeft.get());
    EXPECT_STREQ("s", a->mLeft->getName());
    EXPECT_EQ(2, a->mLeft->mValue);
    EXPECT_EQ(a, a->mRight->mBack); // the cycle
    EXPECT_EQ(3, a->mRight->mValue);
    EXPECT_EQ(nullptr, a->mBack);
    EXPECT_FALSE(a->mLeft->mLeft || a->mLeft->mRight || a->mLeft->mBack || a->mLeft->mLoose ||
                 a->mRight->mRight);
    // Written unregistered twice: two separate copies.
    ASSERT_TRUE(a->mRight->mLoose);
    EXPECT_NE(a->mLoose.get(), a->mRight->mLoose.get());
    EXPECT_EQ(&NamedObject::TYPE, &a->mLoose->getType());
    EXPECT_STREQ("loose", a->mRight->mLoose->getName());
}

TEST(Serializer, ByteExactGraphInBothByteOrdersAndRoundTrip) {
    Graph g;
    for (bool big : {false, true}) {
        SCOPED_TRACE(big ? "TFBE" : "TFLE");
        Fmt f{big, 2};
        Serializer ser(&gFactory);
        ser.setVersion(Serializer::VERSION_1_0_0_2);
        g.addTo(ser);
        std::string bytes = writeRoots(ser, big);
        expectBytes(g.expected(f), bytes, "graph");
        EXPECT_EQ(14u, ser.getTotalObjectCount());

        // Without reset() the identifiers stay: every root becomes a reference.
        std::string again = writeRoots(ser, big);
        expectBytes(f.stream(2, 2, f.ref(0) + f.ref(1)), again, "second write");

        Serializer r(&gFactory);
        ts::ByteInputStream in(bytes.data(), (unsigned)bytes.size(), false);
        r.read(&in, true);
        EXPECT_EQ(big ? tarso::platform::ENDIAN_BIG : tarso::platform::ENDIAN_LITTLE, in.getEndianness());
        EXPECT_TRUE(r.getVersion() == Serializer::VERSION_1_0_0_2);
        EXPECT_EQ(14u, r.getTotalObjectCount());
        checkGraph(r);
        EXPECT_EQ(2, static_cast<Node*>(r.getObject(0))->mLayout);

        // Read and written again (a copy: reading left the identifiers in
        // the maps), the stream is the same.
        Serializer copy(r);
        expectBytes(bytes, writeRoots(copy, big), "rewritten");

        // Records ending exactly at a ByteOutputStream's capacity (multiples of
        // 256 here) still get their lengths patched.
        for (unsigned n = 120; n < 150; ++n) {
            core::SmartPtr<NamedObject> o(new NamedObject(std::string(n, 'n').c_str()));
            Serializer one(&gFactory);
            one.setVersion(Serializer::VERSION_1_0_0_2);
            one.addObject(o.get());
            Serializer back(&gFactory);
            readRoots(back, writeRoots(one, big));
            ASSERT_EQ(1u, back.getObjectCount()) << n;
            EXPECT_EQ(std::string(n, 'n'), static_cast<NamedObject*>(back.getObject(0))->getName());
        }

        // Without a header nothing is read, not even the signature.
        ts::ByteInputStream bare(bytes.data(), (unsigned)bytes.size(), false);
        r.read(&bare, false);
        EXPECT_EQ(0u, r.getObjectCount());
        EXPECT_EQ(0u, bare.tell());
    }
}

TEST(Serializer, RecordHeadersPerVersionAndVersionOrder) {
    // A null root: the SerialUID field exists from 1.0.0.1 on.
    const Serializer::Version versions[] = {Serializer::VERSION_1_0_0_0, Serializer::VERSION_1_0_0_1,
                                            Serializer::VERSION_1_0_0_2};
    for (int v = 0; v < 3; ++v) {
        Fmt f{false, v};
        Serializer ser(&gFactory);
        ser.setVersion(versions[v]);
        ser.addObject(nullptr);
        std::string bytes = writeRoots(ser);
        expectBytes(f.stream(1, 1, f.null()), bytes, "null root");
        tmaintest::ScopedLogCapture log;
        Serializer r(&gFactory);
        readRoots(r, bytes);
        EXPECT_EQ(0u, r.getObjectCount());
        EXPECT_TRUE(log->contains("NULL object read from stream at index 0!", logging::LEVEL_WARN));
    }
    EXPECT_EQ("1.0.0.2", Serializer::VERSION_1_0_0_2.toString());
    EXPECT_TRUE(Serializer::VERSION_1_0_0_2 > Serializer::VERSION_1_0_0_1);
    EXPECT_FALSE(Serializer::VERSION_1_0_0_0 > Serializer::VERSION_1_0_0_0);
    // The layout test only compares each byte with the one before it.
    EXPECT_TRUE((Serializer::Version{1, 0, 1, 0} > Serializer::Version{2, 0, 0, 0}));
    EXPECT_TRUE((Serializer::Version{2, 0, 0, 0} > Serializer::Version{1, 9, 9, 9}));
}

TEST(Serializer, OlderLayoutsReadAndUpgrade) {
    // 1.0.0.0: no SerialUID anywhere; NamedObject is the type name and the name.
    Fmt f0{false, 0};
    auto named0 = [&](const std::string& n) { return f0.str(NAMED) + f0.str(n); };
    auto node0 = [&](const std::string& n, int v, const std::string& kids) {
        return f0.str(NODE) + f0.str(n) + f0.u32((unsigned)v) + kids;
    };
    std::string s0 = f0.rec(1, 0, NODE, node0("s", 2, f0.null() + f0.null() + f0.null() + f0.null()));
    std::string a0 =
        f0.rec(0, 0, NODE, node0("a", 1, s0 + f0.null() + f0.ref(0) + f0.rec(NONE, 0, NAMED, named0("n"))));
    // 1.0.0.1: the record header carries the outermost class's SerialUID, its
    // data starts with the base class. Version 6 of Node had no right child.
    Fmt f1{false, 1};
    auto node1 = [&](const std::string& n, int v, const std::string& kids) {
        return f1.named(NODE, n) + f1.u32((unsigned)v) + kids;
    };
    std::string y1 = f1.rec(1, 7, NODE, node1("y", 6, f1.null() + f1.null() + f1.ref(0) + f1.null()));
    std::string m1 = f1.rec(NONE, 2, NAMED, Fmt::le32(2) + f1.str(NAMED) + f1.str("m"));
    std::string x1 = f1.rec(0, 6, NODE, node1("x", 5, y1 + f1.null() + m1));

    struct Case {
        std::string bytes;
        int layout;
    } cases[] = {{f0.stream(1, 9, a0), 0}, {f1.stream(1, 8, x1), 1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.layout);
        Serializer r(&gFactory);
        readRoots(r, c.bytes);
        ASSERT_EQ(1u, r.getObjectCount());
        Node* top = static_cast<Node*>(r.getObject(0));
        ASSERT_TRUE(top->mLeft && top->mLoose);
        Node* kid = top->mLeft.get();
        EXPECT_EQ(c.layout, top->mLayout);
        EXPECT_EQ(c.layout, kid->mLayout);
        EXPECT_EQ(top, c.layout == 0 ? top->mBack : kid->mBack);
        if (c.layout == 0) {
            EXPECT_STREQ("a", top->getName());
            EXPECT_STREQ("n", top->mLoose->getName());
            EXPECT_EQ(2, kid->mValue);
        } else {
            EXPECT_EQ(6u, top->mLayoutSUID); // the header's number chose the reader
            EXPECT_EQ(7u, kid->mLayoutSUID);
            EXPECT_STREQ("x", top->getName());
            EXPECT_STREQ("m", top->mLoose->getName());
            EXPECT_EQ(6, kid->mValue);
            EXPECT_FALSE(top->mRight);
        }
        // Upgrade: written at 1.0.0.2, read back and written again, identical.
        r.setVersion(Serializer::VERSION_1_0_0_2);
        Serializer upgrade(r);
        std::string current = writeRoots(upgrade);
        Serializer r2(&gFactory);
        readRoots(r2, current);
        ASSERT_EQ(1u, r2.getObjectCount());
        EXPECT_EQ(2, static_cast<Node*>(r2.getObject(0))->mLayout);
        Serializer again(r2);
        expectBytes(current, writeRoots(again), "upgraded");
    }
}

TEST(Serializer, UnknownTypesAreSkippedAndBadReferencesWarned) {
    Fmt f{false, 2};
    // Unknown data that looks like records must not be parsed.
    std::string junk = "OCNT" + f.u32(5) + "OREF" + std::string(20, '\x7f');
    std::string content = f.rec(0, 3, "no::Such", junk) + f.rec(1, 2, NAMED, f.named(NAMED, "after")) +
                          f.ref(0) + f.ref(0x1234) + f.ref(1);
    tmaintest::ScopedLogCapture log;
    Serializer r(&gFactory);
    readRoots(r, f.stream(5, 5, content));
    ASSERT_EQ(2u, r.getObjectCount());
    EXPECT_STREQ("after", static_cast<NamedObject*>(r.getObject(0))->getName());
    EXPECT_EQ(r.getObject(0), r.getObject(1));
    auto warned = [&](const std::string& m) { return log->contains(m, logging::LEVEL_WARN); };
    EXPECT_TRUE(
        warned("Unable to create object instance for type name 'no::Such'. Skipping object stream read."));
    EXPECT_TRUE(warned("Unresolved object reference (#       0)"));
    EXPECT_TRUE(warned("Unresolved object reference (#    1234)"));
    EXPECT_TRUE(warned("NULL object read from stream at index 0!"));
    EXPECT_TRUE(warned("NULL object read from stream at index 3!"));
    EXPECT_TRUE(
        log->contains("2/5 root-level objects read successfully from stream (5 total object references read)",
                      logging::LEVEL_INFO));

    // A class the factory cannot make, written by our writer, then a good one.
    core::SmartPtr<Ghost> ghost(new Ghost());
    core::SmartPtr<Node> node(new Node("next", 9));
    node->mLoose = new Ghost(); // an unknown class inside a known one
    Serializer w(&gFactory);
    w.setVersion(Serializer::VERSION_1_0_0_2);
    w.addObject(ghost.get());
    w.addObject(node.get());
    log->clear();
    readRoots(r, writeRoots(w));
    ASSERT_EQ(1u, r.getObjectCount());
    Node* next = static_cast<Node*>(r.getObject(0));
    EXPECT_STREQ("next", next->getName());
    EXPECT_EQ(9, next->mValue);
    EXPECT_FALSE(next->mLoose);
    EXPECT_TRUE(warned("type name 'sertest::Ghost'. Skipping object stream read."));
    EXPECT_FALSE(warned("Stream offset mismatch"));
}

TEST(Serializer, OffsetMismatchIsWarnedAndReadingResynchronises) {
    core::SmartPtr<Sloppy> sloppy(new Sloppy());
    core::SmartPtr<NamedObject> after(new NamedObject("after"));
    Serializer w(&gFactory);
    w.setVersion(Serializer::VERSION_1_0_0_2);
    w.addObject(sloppy.get());
    w.addObject(after.get());
    std::string bytes = writeRoots(w);
    Fmt f{false, 2};
    const std::string sloppyRec =
        f.rec(0, 2, "sertest::Sloppy", Fmt::le32(2) + f.str("sertest::Sloppy") + f.u32(11) + f.u32(22));
    ASSERT_EQ(f.stream(2, 2, sloppyRec + f.rec(1, 2, NAMED, f.named(NAMED, "after"))), bytes);
    const unsigned end = 36 + (unsigned)sloppyRec.size();
    for (int ints : {1, 2, 3}) {
        SCOPED_TRACE(ints);
        Sloppy::sReadInts = ints;
        tmaintest::ScopedLogCapture log;
        Serializer r(&gFactory);
        readRoots(r, bytes);
        Sloppy::sReadInts = 2;
        ASSERT_EQ(2u, r.getObjectCount());
        EXPECT_STREQ("after", static_cast<NamedObject*>(r.getObject(1))->getName());
        std::string warning =
            core::formatMessagef("Stream offset mismatch for object type 'sertest::Sloppy' (expected "
                                 "%8X, found %8X). Forcing stream position adjustment.",
                                 end, end + 4 * ints - 8);
        EXPECT_EQ(ints != 2, log->contains(warning, logging::LEVEL_WARN)) << warning;
    }
}

TEST(Serializer, TypeNameLimits) {
    core::SmartPtr<Long255> ok(new Long255());
    Serializer w(&gFactory);
    w.setVersion(Serializer::VERSION_1_0_0_2);
    w.addObject(ok.get());
    std::string bytes = writeRoots(w);
    EXPECT_EQ(Fmt::le32(255), bytes.substr(52, 4));
    EXPECT_EQ(NAME255, bytes.substr(56, 255));
    Serializer r(&gFactory);
    readRoots(r, bytes);
    ASSERT_EQ(1u, r.getObjectCount());
    EXPECT_EQ(&Long255::TYPE, &r.getObject(0)->getType());

    core::SmartPtr<Long256> tooLong(new Long256());
    Serializer w2(&gFactory);
    w2.setVersion(Serializer::VERSION_1_0_0_2);
    w2.addObject(tooLong.get());
    QuietConsole quiet;
    tmaintest::ScopedLogCapture log;
    EXPECT_EQ("Type name too long ('" + NAME256 + "', 256>255 characters). Object stream read aborted",
              messageOf<core::IllegalArgumentException>([&] { writeRoots(w2); }));
    EXPECT_TRUE(
        log->contains("Error writing object #0 to stream [tarso::core::Serializer@", logging::LEVEL_ERROR));

    Fmt f{false, 2};
    std::string longRec = "OCNT" + f.u32(0) + Fmt::le32(2) + f.u32(300) + f.u32(256) + std::string(296, 'z');
    EXPECT_EQ("Type name too long (256>255 characters). Object stream read aborted",
              messageOf<core::IllegalArgumentException>([&] { readRoots(r, f.stream(1, 1, longRec)); }));
    EXPECT_TRUE(log->contains("Error reading object #0 from stream", logging::LEVEL_ERROR));
}

TEST(Serializer, FilesPlainAndCompressed) {
    tmaintest::TempDir tmp;
    core::SmartPtr<tarso::vfs::SimpleFileSystem> fs(new tarso::vfs::SimpleFileSystem(tmp.path().c_str()));
    Graph g;
    Serializer w(&gFactory);
    g.addTo(w);
    w.setVersion(Serializer::VERSION_1_0_0_2);
    const std::string plain = writeRoots(w);
    w.reset();
    g.addTo(w);

    core::SmartPtr<tarso::vfs::File> flat(fs->create("objs/flat.tos", true));
    w.write(flat.get(), Serializer::VERSION_1_0_0_2, 0);
    expectBytes(plain, tmaintest::readFile(tmp.file("objs/flat.tos")), "plain file");

    w.reset();
    g.addTo(w);
    core::SmartPtr<tarso::vfs::File> packed(fs->create("objs/packed.tos", true));
    w.write(packed.get(), Serializer::VERSION_1_0_0_2, 6);
    const std::string z = tmaintest::readFile(tmp.file("objs/packed.tos"));
    ASSERT_GT(z.size(), 36u);
    // The header stays readable: the counts and size of the plain content.
    EXPECT_EQ(plain.substr(0, 20), z.substr(0, 20));
    EXPECT_EQ(1, z[20]);
    EXPECT_EQ(std::string(15, '\0'), z.substr(21, 15));
    EXPECT_FALSE(fs->exists("objs/packed.tos.z"));

    Serializer r(&gFactory);
    r.read(packed.get());
    checkGraph(r);
    EXPECT_EQ(std::string(packed->getPath()).substr(0, std::string(packed->getPath()).rfind('/')),
              r.getCurrentRootPath());
    {
        tmaintest::ScopedLogCapture log;
        EXPECT_EQ(Serializer::CR_ALREADY_COMPRESSED, w.doCompression(packed.get(), nullptr, 6));
        EXPECT_TRUE(log->contains(std::string("File '") + packed->getPath() + "' is already compressed."));
    }
    EXPECT_EQ("Unsupported serializer version: 2.0.0.0", messageOf<core::IllegalArgumentException>([&] {
                  w.write(flat.get(), Serializer::Version{2, 0, 0, 0}, 0);
              }));
    EXPECT_EQ("Unsupported serializer version: 1.0.1.0", messageOf<core::IllegalArgumentException>([&] {
                  w.write(flat.get(), Serializer::Version{1, 0, 1, 0}, 0);
              }));

    // The content after the header inflates with zlib to the plain content.
    TMAIN_REQUIRE_TOOL("python3");
    tmaintest::writeFile(tmp.file("content.z"), z.substr(36));
    std::string inflated;
    ASSERT_EQ(0, tmaintest::run("python3 -c \"import sys,zlib; sys.stdout.buffer.write(zlib.decompress("
                                "open(sys.argv[1],'rb').read()))\" '" +
                                    tmp.file("content.z") + "'",
                                &inflated));
    expectBytes(plain.substr(36), inflated, "inflated content");
}

TEST(Serializer, ResolvePath) {
    Serializer s(&gFactory);
    std::string out;
    s.resolvePath("a/b.txt", nullptr, out);
    EXPECT_EQ("a/b.txt", out); // no root path yet
    s.setCurrentRootPath("/data/maps");
    s.resolvePath("a/b.txt", nullptr, out);
    EXPECT_EQ("/data/maps/a/b.txt", out);
    s.resolvePath("/abs/c", nullptr, out);
    EXPECT_EQ("/abs/c", out);
    s.resolvePath(nullptr, nullptr, out);
    EXPECT_EQ("", out);

    int calls = 0;
    bool answer = false;
    const core::Type* seenType = nullptr;
    s.setPathResolveCallback(Serializer::PathResolveCallback(
        [&](Serializer* who, const char* path, const core::Type* type, std::string& o) {
            ++calls;
            seenType = type;
            EXPECT_EQ(&s, who);
            o = std::string("cb:") + path;
            return answer;
        }));
    s.resolvePath("x", &Node::TYPE, out); // declined: kept, default used
    EXPECT_EQ("/data/maps/x", out);
    answer = true;
    s.resolvePath("y", &Node::TYPE, out);
    EXPECT_EQ("cb:y", out);
    EXPECT_EQ(&Node::TYPE, seenType);
    s.resolvePath("z", nullptr, out); // used up
    EXPECT_EQ("/data/maps/z", out);
    EXPECT_EQ(2, calls);
}

TEST(Serializer, HostileStreams) {
    QuietConsole quiet;
    Graph g;
    Serializer w(&gFactory);
    w.setVersion(Serializer::VERSION_1_0_0_2);
    g.addTo(w);
    const std::string good = writeRoots(w);
    Serializer r(&gFactory);
    // Cut at every offset: always one of our exceptions, never a crash.
    for (size_t n = 0; n < good.size(); ++n) {
        std::vector<char> cut(good.begin(), good.begin() + n); // exact size, so ASan sees overreads
        ts::ByteInputStream in(cut.data(), (unsigned)n, false);
        bool threw = false;
        try {
            r.read(&in, true);
        } catch (const core::Exception&) {
            threw = true;
        }
        EXPECT_TRUE(threw) << "cut at " << n;
    }

    Fmt f{false, 2};
    const std::string named = f.rec(0, 2, NAMED, f.named(NAMED, "n"));
    auto readMessage = [&](const std::string& bytes) {
        return messageOf<core::Exception>([&] { readRoots(r, bytes); });
    };
    std::string tagFailure = readMessage(f.stream(0xFFFFFFFFu, 1, named)); // huge count, one record
    EXPECT_EQ(0u, tagFailure.find("Error deserializing object [tarso::core::Serializer@")) << tagFailure;
    EXPECT_NE(std::string::npos, tagFailure.find("]: OCNT/OREF")) << tagFailure;
    EXPECT_EQ("Unknown stream signature 'XXXX'",
              readMessage(f.stream(2, 2, named + "XXXX" + f.u32(0) + f.u32(0))));
    EXPECT_EQ("Invalid stream signature (expected 'TFLE' or 'TFBE', found 'ABCD'",
              readMessage("ABCD" + f.stream(1, 1, named).substr(4)));
    std::string badVersion = f.stream(1, 1, named);
    badVersion[6] = 1; // 1.0.1.2
    EXPECT_EQ("Stream version mismatch (expected 1.0.0.0-1.0.0.2, found 1.0.1.2)", readMessage(badVersion));
    // A reference to an object of another class is refused like a record of one.
    std::string nodeWithNamedChild =
        f.rec(1, 7, NODE, f.node("p", 0, named + f.null() + f.null() + f.null()));
    EXPECT_EQ("Invalid object type read (expected 'sertest::Node', found 'tarso::core::NamedObject')",
              readMessage(f.stream(1, 1, nodeWithNamedChild)));
    std::string nodeWithNamedRef =
        f.rec(1, 7, NODE, f.node("p", 0, f.ref(0) + f.null() + f.null() + f.null()));
    EXPECT_EQ("Invalid object type read (expected 'sertest::Node', found 'tarso::core::NamedObject')",
              readMessage(f.stream(2, 3, named + nodeWithNamedRef)));
    Serializer noFactory(nullptr);
    EXPECT_EQ("No object factory set! Read operation aborted", messageOf<core::IllegalStateException>([&] {
                  ts::ByteInputStream in(good.data(), (unsigned)good.size(), false);
                  noFactory.read(&in, true);
              }));

    // Data lengths beyond the end: an unknown record skips to the end, a known
    // one is read and the position moved to the end with a warning.
    std::string farUnknown = "OCNT" + f.u32(0) + Fmt::le32(2) + f.u32(0x7FFFFFF0) + f.str("no::Such") + "abc";
    EXPECT_NE(std::string::npos, readMessage(f.stream(2, 2, farUnknown)).find("]: OCNT/OREF"));
    std::string farNamed = named;
    farNamed.replace(12, 4, f.u32(0x7FFFFFF0));
    {
        tmaintest::ScopedLogCapture log;
        readRoots(r, f.stream(1, 1, farNamed));
        EXPECT_EQ(1u, r.getObjectCount());
        EXPECT_TRUE(log->contains("Stream offset mismatch for object type 'tarso::core::NamedObject'"));
    }

    // Nesting beyond the limit ends with an exception instead of the stack.
    core::SmartPtr<Node> chain(new Node("0"));
    Node* tail = chain.get();
    for (int i = 1; i < 600; ++i) {
        tail->mLeft = new Node(std::to_string(i).c_str());
        tail = tail->mLeft.get();
    }
    Serializer deep(&gFactory);
    deep.setVersion(Serializer::VERSION_1_0_0_2);
    deep.addObject(chain.get());
    Serializer::sMaxNesting = 1000; // the writer may go deeper than the reader allows
    std::string deepBytes = writeRoots(deep);
    Serializer::sMaxNesting = 512;
    EXPECT_EQ("Object stream nested deeper than 512 objects. Object stream read aborted",
              readMessage(deepBytes));
}

TEST(Serializer, OverlappingRecordsAreRefused) {
    QuietConsole quiet;
    Fmt f{false, 2};
    Serializer r(&gFactory);
    auto readMessage = [&](const std::string& bytes) {
        return messageOf<ts::IOException>([&] { readRoots(r, bytes); });
    };
    // A skipped record whose length wraps around to its own start, with a huge
    // root count: without a guard it is read again and again.
    std::string self = "OCNT" + f.u32(0) + Fmt::le32(2) + f.u32(0u - 16u) + f.str("no::Such");
    EXPECT_EQ("Object record at       24 read twice. Object stream read aborted",
              readMessage(f.stream(0xFFFFFFFFu, 1, self)));
    // Nodes whose lengths end where their first child starts: each child
    // record is read again as its parent's next child, so the work doubles
    // with every level.
    std::string chain;
    for (int k = 0; k < 48; ++k) {
        std::string own = Fmt::le32(7) + f.named(NODE, "") + f.u32((unsigned)k);
        chain += "OCNT" + f.u32(NONE) + Fmt::le32(7) + f.u32((unsigned)(4 + strlen(NODE) + own.size())) +
                 f.str(NODE) + own;
    }
    for (int k = 0; k < 8; ++k)
        chain += f.null();
    std::string m = readMessage(f.stream(1, 1, chain));
    EXPECT_EQ(0u, m.find("Object record at ")) << m;
    EXPECT_NE(std::string::npos, m.find(" read twice. Object stream read aborted")) << m;
}

} // namespace

TEST(Serializer, UnregisteredSelfReferenceStopsAtTheNestingLimit) {
    QuietConsole quiet;
    core::SmartPtr<Node> root(new Node("root", 1));
    core::SmartPtr<Node> loop(new Node("loop", 2));
    root->mLoose = loop;
    loop->mLoose = loop; // written with registerObject false: never an OREF
    tc::ObjectFactory<Object> factory;
    Serializer s(&factory);
    s.setVersion(Serializer::VERSION_1_0_0_2);
    s.addObject(root.get());
    ts::ByteOutputStream out;
    out.open(ts::Stream::OM_WRITE);
    try {
        s.write(&out, true);
        FAIL() << "no nesting limit";
    } catch (const ts::IOException& e) {
        EXPECT_STREQ("Object graph nested deeper than 512 objects. Object stream write aborted",
                     e.getMessage());
    }
    loop->mLoose = nullptr;
}
