// libFuzzer harness for the object stream reader. Any input must end in one
// of our exceptions or a graph; a graph that was read must write back, and
// that stream must read into a graph that writes the very same bytes.
//
// Seeds: TMAIN_FUZZ_SEEDS=<dir> ./fuzz_object_stream -runs=0 writes the
// starting corpus (tests/fuzz/corpus/fuzz_object_stream) into <dir>.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <tmain/core/NamedObject.h>
#include <tmain/core/ObjectFactory.h>
#include <tmain/core/Serializer.h>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Logger.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/ByteOutputStream.h>
#include <tmain/stream/DeflateOutputStream.h>
#include <vector>

namespace tc = tarso::core;
namespace ts = tarso::stream;

namespace {

// Members are plain pointers: the serializer holds every object it made until
// it is reset, so no reference cycles can leak. Version 2 had no mB.
class FuzzNode : public tc::NamedObject {
    TMAIN_TYPE()
    TMAIN_SERIAL_IDENTITY(3, 2)
public:
    int mValue = 0;
    FuzzNode* mA = nullptr;
    FuzzNode* mB = nullptr;
    // Written unregistered; plain NamedObjects only, since an object written
    // unregistered that reaches itself again would be written forever.
    tc::NamedObject* mLeaf = nullptr;

    void serialize(ts::OutputStream* out, tc::Serializer* s) const override {
        checkWrite(tc::writeRawSUID(out, mSUID), "writeSUID");
        NamedObject::serialize(out, s);
        checkWrite(out->write(mValue), "mValue");
        s->writeObject(mA, out, true);
        s->writeObject(mB, out, true);
        s->writeObject(mLeaf, out, false);
    }
    void deserialize(ts::InputStream* in, tc::Serializer* s) override {
        unsigned suid = 0;
        checkRead(tc::readRawSUID(in, suid), "readSUID");
        getDeserializer(suid)(this, in, s);
    }
    void deserializeLegacy1(ts::InputStream* in, tc::Serializer* s, unsigned suid) override {
        getDeserializer(suid)(this, in, s);
    }
    void deserializeLegacy0(ts::InputStream* in, tc::Serializer* s) override {
        NamedObject::deserializeLegacy0(in, s);
        readFields(in, s, true);
    }

private:
    static void readV2(tc::Serializable* o, ts::InputStream* in, tc::Serializer* s) {
        static_cast<FuzzNode*>(o)->NamedObject::deserialize(in, s);
        static_cast<FuzzNode*>(o)->readFields(in, s, false);
    }
    static void readV3(tc::Serializable* o, ts::InputStream* in, tc::Serializer* s) {
        static_cast<FuzzNode*>(o)->NamedObject::deserialize(in, s);
        static_cast<FuzzNode*>(o)->readFields(in, s, true);
    }
    void readFields(ts::InputStream* in, tc::Serializer* s, bool withB) {
        checkRead(in->read(mValue), "mValue");
        mA = static_cast<FuzzNode*>(s->readObject(in, FuzzNode::TYPE));
        if (withB)
            mB = static_cast<FuzzNode*>(s->readObject(in, FuzzNode::TYPE));
        mLeaf = static_cast<tc::NamedObject*>(s->readObject(in, tc::NamedObject::TYPE));
        if (mLeaf && &mLeaf->getType() != &tc::NamedObject::TYPE)
            mLeaf = nullptr;
    }
};
const ::core::Type FuzzNode::TYPE("fuzz::FuzzNode", &tc::NamedObject::TYPE);
const tc::DeserializerEntry FuzzNode::DESERIALIZER_LIST[2] = {{2, &FuzzNode::readV2}, {3, &FuzzNode::readV3}};

// A counted list of objects of any class and a byte string.
class FuzzList : public tc::Object {
    TMAIN_TYPE()
public:
    std::vector<tc::Object*> mItems;
    std::string mBlob;

    void serialize(ts::OutputStream* out, tc::Serializer* s) const override {
        Object::serialize(out, s);
        checkWrite(out->write(mBlob) && out->write((unsigned)mItems.size()), "items");
        for (tc::Object* o : mItems)
            s->writeObject(o, out, true);
    }
    void deserialize(ts::InputStream* in, tc::Serializer* s) override {
        Object::deserialize(in, s);
        unsigned n = 0;
        checkRead(in->read(mBlob) && in->read(n), "items");
        for (unsigned i = 0; i < n; ++i) // no reserve(n): n comes from the stream
            mItems.push_back(dynamic_cast<tc::Object*>(s->readObject(in, ::core::Type::NOTYPE)));
    }
};
const ::core::Type FuzzList::TYPE("fuzz::FuzzList", &tc::Object::TYPE);

TMAIN_REGISTER_CREATABLE(FuzzNode);
TMAIN_REGISTER_CREATABLE(FuzzList);

tc::ObjectFactory<tc::Object> gFactory;

std::string writeAll(tc::Serializer& s, tarso::platform::Endianness e = tarso::platform::ENDIAN_LITTLE) {
    ts::ByteOutputStream out;
    out.setEndianness(e);
    out.open(ts::Stream::OM_WRITE | ts::Stream::OM_BINARY);
    s.write(&out, true);
    return std::string((const char*)out.getBytes(), out.getSize());
}

[[noreturn]] void fail(const char* what, const char* detail) {
    fprintf(stderr, "fuzz_object_stream: %s: %s\n", what, detail);
    abort();
}

void save(const std::string& dir, const char* name, const std::string& bytes) {
    std::string path = dir + "/" + name;
    FILE* f = fopen(path.c_str(), "wb");
    if (!f)
        fail("cannot write seed", path.c_str());
    fwrite(bytes.data(), 1, bytes.size(), f);
    fclose(f);
}

// A small graph with a shared node, a cycle, a leaf written unregistered, a
// list holding a plain NamedObject and a reference, and a null.
void writeSeeds(const std::string& dir) {
    ::core::SmartPtr<FuzzNode> root(new FuzzNode()), shared(new FuzzNode()), other(new FuzzNode());
    ::core::SmartPtr<tc::NamedObject> leaf(new tc::NamedObject("leaf"));
    ::core::SmartPtr<FuzzList> list(new FuzzList());
    root->setName("root");
    root->mValue = 7;
    root->mA = shared.get();
    root->mB = other.get();
    root->mLeaf = leaf.get();
    other->mA = shared.get();
    other->mB = root.get();
    list->mBlob = "blob";
    list->mItems = {leaf.get(), shared.get(), nullptr};
    tc::Serializer s(&gFactory);
    s.setVersion(tc::Serializer::VERSION_1_0_0_2);
    s.addObject(root.get());
    s.addObject(list.get());
    const std::string plain = writeAll(s);
    save(dir, "graph-le", plain);
    tc::Serializer be(&gFactory);
    be.setVersion(tc::Serializer::VERSION_1_0_0_2);
    be.addObject(root.get());
    be.addObject(list.get());
    save(dir, "graph-be", writeAll(be, tarso::platform::ENDIAN_BIG));

    // The same content as raw deflate behind a header with the compression flag.
    ts::ByteOutputStream packed;
    packed.open(ts::Stream::OM_WRITE | ts::Stream::OM_BINARY);
    std::string header = plain.substr(0, 36);
    header[20] = 1;
    packed.write(header.data(), 1, 36);
    {
        ts::DeflateOutputStream deflater(&packed, 9, 4096, true);
        deflater.open(ts::Stream::OM_WRITE | ts::Stream::OM_BINARY);
        deflater.write(plain.data() + 36, 1, (unsigned)plain.size() - 36);
        deflater.close();
    }
    save(dir, "graph-deflate", std::string((const char*)packed.getBytes(), packed.getSize()));

    // Version 1.0.0.0: no serial numbers; a node holding a self reference.
    auto le = [](unsigned v) { return std::string((const char*)&v, 4); };
    auto str = [&](const std::string& t) { return le((unsigned)t.size()) + t; };
    std::string nullRec = "OCNT" + le(0xFFFFFFFFu) + le(0);
    std::string data =
        str("fuzz::FuzzNode") + str("old") + le(3) + "OREF" + le(0) + le(0) + nullRec + nullRec;
    std::string rec = "OCNT" + le(0) + le((unsigned)(18 + data.size())) + str("fuzz::FuzzNode") + data;
    std::string head = std::string("TFLE\x01\x00\x00\x00", 8) + le(1) + le(4) + le((unsigned)rec.size()) +
                       std::string(16, '\0');
    save(dir, "legacy0", head + rec);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (logging::ConsoleAppender* console = logging::Logger::getRootLogger().getConsoleAppender())
        console->setThreshold(logging::LEVEL_OFF);
    if (const char* dir = getenv("TMAIN_FUZZ_SEEDS"))
        writeSeeds(dir);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tc::Serializer first(&gFactory);
    ts::ByteInputStream in(data, (unsigned)size, false);
    try {
        first.read(&in, true);
    } catch (const ::core::Exception&) {
        return 0;
    }
    // A copy has the roots without the identifiers reading left in the maps.
    tc::Serializer copy(first);
    copy.setVersion(tc::Serializer::VERSION_1_0_0_2);
    std::string written, rewritten;
    try {
        written = writeAll(copy);
        tc::Serializer second(&gFactory);
        ts::ByteInputStream again((const void*)written.data(), (unsigned)written.size(), false);
        second.read(&again, true);
        tc::Serializer copy2(second);
        rewritten = writeAll(copy2);
    } catch (const ::core::Exception& e) {
        fail("a graph that was read failed to round-trip", e.getMessage());
    }
    if (written != rewritten)
        fail("round trip changed the stream", "write(read(write(graph))) != write(graph)");
    return 0;
}
