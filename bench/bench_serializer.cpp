// Writes a graph of 1,000,000 small objects (a name and three integers; every
// 10th one references a shared object) to an object stream in memory and
// reads it back, then does the same on the same graph with two peers in the
// same run:
//   - Boost.Serialization's binary archives, the peer with the same features:
//     polymorphic pointers created by exported class name, versions, tracking
//     of shared objects;
//   - cereal's binary archive over std::shared_ptr, a lower bound: it writes
//     no type names, versions or lengths.
// Each path runs REPETITIONS times; the median time counts. Prints objects per
// second and the time ratios ours / Boost and ours / cereal.
#include <tmain/core/NamedObject.h>
#include <tmain/core/ObjectFactory.h>
#include <tmain/core/Serializer.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/ByteOutputStream.h>

#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#include <boost/serialization/base_object.hpp>
#include <boost/serialization/export.hpp>
#include <boost/serialization/shared_ptr.hpp>
#include <boost/serialization/string.hpp>
#include <boost/serialization/vector.hpp>

#include <cereal/archives/binary.hpp>
#include <cereal/types/memory.hpp>
#include <cereal/types/string.hpp>
#include <cereal/types/vector.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace tc = tarso::core;
namespace ts = tarso::stream;

namespace bench {

// Ours: Bag -> Item (a NamedObject) -> shared Item.
class Item : public tc::NamedObject {
    TMAIN_TYPE()
public:
    int mA = 0, mB = 0, mC = 0;
    ::core::SmartPtr<Item> mRef;

    void serialize(ts::OutputStream* out, tc::Serializer* s) const override {
        NamedObject::serialize(out, s);
        checkWrite(out->write(mA) && out->write(mB) && out->write(mC), "ints");
        s->writeObject(mRef.get(), out, true);
    }
    void deserialize(ts::InputStream* in, tc::Serializer* s) override {
        NamedObject::deserialize(in, s);
        checkRead(in->read(mA) && in->read(mB) && in->read(mC), "ints");
        mRef = static_cast<Item*>(s->readObject(in, Item::TYPE));
    }
};
const ::core::Type Item::TYPE("bench::Item", &tc::NamedObject::TYPE);

class Bag : public tc::Object {
    TMAIN_TYPE()
public:
    std::vector<::core::SmartPtr<Item>> mItems;

    void serialize(ts::OutputStream* out, tc::Serializer* s) const override {
        Object::serialize(out, s);
        checkWrite(out->write((unsigned)mItems.size()), "count");
        for (const auto& i : mItems)
            s->writeObject(i.get(), out, true);
    }
    void deserialize(ts::InputStream* in, tc::Serializer* s) override {
        Object::deserialize(in, s);
        unsigned n = 0;
        checkRead(in->read(n), "count");
        mItems.reserve(n);
        for (unsigned i = 0; i < n; ++i)
            mItems.emplace_back(static_cast<Item*>(s->readObject(in, Item::TYPE)));
    }
};
const ::core::Type Bag::TYPE("bench::Bag", &tc::Object::TYPE);

TMAIN_REGISTER_CREATABLE(Item);
TMAIN_REGISTER_CREATABLE(Bag);

// Boost: the same classes, a polymorphic root read back through its base and
// created by its exported name.
struct BObject {
    virtual ~BObject() = default;
    template <class Archive> void serialize(Archive&, unsigned) {}
};
struct BNamed : BObject {
    std::string name;
    template <class Archive> void serialize(Archive& ar, unsigned) {
        ar& boost::serialization::base_object<BObject>(*this);
        ar& name;
    }
};
struct BItem : BNamed {
    int a = 0, b = 0, c = 0;
    std::shared_ptr<BItem> ref;
    template <class Archive> void serialize(Archive& ar, unsigned) {
        ar& boost::serialization::base_object<BNamed>(*this);
        ar& a& b& c& ref;
    }
};
struct BBag : BObject {
    std::vector<std::shared_ptr<BItem>> items;
    template <class Archive> void serialize(Archive& ar, unsigned) {
        ar& boost::serialization::base_object<BObject>(*this);
        ar& items;
    }
};

// cereal: plain structs, no polymorphism.
struct CItem {
    std::string name;
    int a = 0, b = 0, c = 0;
    std::shared_ptr<CItem> ref;
    template <class Archive> void serialize(Archive& ar) { ar(name, a, b, c, ref); }
};

} // namespace bench

BOOST_CLASS_EXPORT(bench::BNamed)
BOOST_CLASS_EXPORT(bench::BItem)
BOOST_CLASS_EXPORT(bench::BBag)

namespace {

using namespace bench;

const unsigned COUNT = 1000000;
const int REPETITIONS = 5;

std::string nameOf(unsigned i) {
    return "item-" + std::to_string(i);
}

typedef std::chrono::steady_clock Clock;

[[noreturn]] void fail(const char* what) {
    fprintf(stderr, "bench_serializer: %s\n", what);
    exit(1);
}

// Times f() REPETITIONS times (each call one full write or read, including
// freeing what it made) and returns the median in seconds.
struct Timings {
    std::vector<double> runs;
    template <class F> void add(F f) {
        Clock::time_point t = Clock::now();
        f();
        runs.push_back(std::chrono::duration<double>(Clock::now() - t).count());
    }
    double median() const {
        std::vector<double> r = runs;
        std::sort(r.begin(), r.end());
        return r[r.size() / 2];
    }
};

struct View {
    std::string name;
    int a, c;
    const void* ref;
};

// Checks names, numbers and the sharing of what was read.
template <class Get> void verify(Get get, size_t n) {
    if (n != COUNT)
        fail("wrong object count read back");
    for (unsigned i = 0; i < COUNT; i += 9973) {
        View r = get(i);
        if (r.name != nameOf(i) || r.a != (int)i || r.c != (int)(i ^ 0x5a5a))
            fail("wrong object read back");
        if ((i % 10 == 0) != (r.ref != nullptr) || (r.ref && r.ref != get(10).ref))
            fail("wrong shared reference read back");
    }
}

} // namespace

int main() {
    tc::ObjectFactory<tc::Object> factory;
    ::core::SmartPtr<Item> shared(new Item());
    shared->setName("shared");
    ::core::SmartPtr<Bag> bag(new Bag());
    auto bshared = std::make_shared<BItem>();
    bshared->name = "shared";
    auto bbag = std::make_shared<BBag>();
    auto cshared = std::make_shared<CItem>();
    cshared->name = "shared";
    std::vector<std::shared_ptr<CItem>> citems;
    for (unsigned i = 0; i < COUNT; ++i) {
        ::core::SmartPtr<Item> it(new Item());
        it->setName(nameOf(i).c_str());
        it->mA = (int)i;
        it->mB = (int)(i * 7);
        it->mC = (int)(i ^ 0x5a5a);
        auto b = std::make_shared<BItem>();
        b->name = nameOf(i);
        b->a = it->mA;
        b->b = it->mB;
        b->c = it->mC;
        auto c = std::make_shared<CItem>();
        c->name = nameOf(i);
        c->a = it->mA;
        c->b = it->mB;
        c->c = it->mC;
        if (i % 10 == 0) {
            it->mRef = shared;
            b->ref = bshared;
            c->ref = cshared;
        }
        bag->mItems.push_back(it);
        bbag->items.push_back(b);
        citems.push_back(c);
    }

    Timings ourWrite, ourRead, boostWrite, boostRead, cerealWrite, cerealRead;
    size_t ourBytes = 0, boostBytes = 0, cerealBytes = 0;
    for (int rep = 0; rep < REPETITIONS; ++rep) {
        // Ours. The block grows in 16 MiB steps (its default 256-byte step
        // would copy the whole block on almost every record).
        ts::ByteOutputStream out(1u << 20, 16u << 20);
        out.open(ts::Stream::OM_WRITE | ts::Stream::OM_BINARY);
        ourWrite.add([&] {
            tc::Serializer w(&factory);
            w.setVersion(tc::Serializer::VERSION_1_0_0_2);
            w.addObject(bag.get());
            w.write(&out, true);
        });
        ourBytes = out.getSize();
        ourRead.add([&] {
            tc::Serializer r(&factory);
            ts::ByteInputStream in(out.getBytes(), out.getSize(), false);
            r.read(&in, true);
            Bag* back = dynamic_cast<Bag*>(r.getObject(0));
            if (!back)
                fail("no bag read back");
            verify(
                [&](unsigned i) {
                    Item* it = back->mItems[i].get();
                    return View{it->getName(), it->mA, it->mC, it->mRef.get()};
                },
                back->mItems.size());
        });

        // Boost: the root goes through its base class pointer.
        std::stringbuf bout;
        boostWrite.add([&] {
            boost::archive::binary_oarchive ar(bout);
            std::shared_ptr<BObject> root = bbag;
            ar << root;
        });
        const std::string bbytes = bout.str();
        boostBytes = bbytes.size();
        boostRead.add([&] {
            std::stringbuf bin(bbytes);
            std::shared_ptr<BObject> root;
            {
                boost::archive::binary_iarchive ar(bin);
                ar >> root;
            }
            BBag* back = dynamic_cast<BBag*>(root.get());
            if (!back)
                fail("no Boost bag read back");
            verify(
                [&](unsigned i) {
                    const BItem& b = *back->items[i];
                    return View{b.name, b.a, b.c, b.ref.get()};
                },
                back->items.size());
        });

        // cereal.
        std::ostringstream os;
        cerealWrite.add([&] {
            cereal::BinaryOutputArchive ar(os);
            ar(citems);
        });
        const std::string cbytes = os.str();
        cerealBytes = cbytes.size();
        cerealRead.add([&] {
            std::istringstream is(cbytes);
            std::vector<std::shared_ptr<CItem>> back;
            {
                cereal::BinaryInputArchive ar(is);
                ar(back);
            }
            verify(
                [&](unsigned i) {
                    const CItem& c = *back[i];
                    return View{c.name, c.a, c.c, c.ref.get()};
                },
                back.size());
        });
    }

    printf("objects: %u (+1 shared), stream %zu bytes, Boost %zu bytes, cereal %zu bytes\n", COUNT, ourBytes,
           boostBytes, cerealBytes);
    const struct {
        const char* name;
        const Timings& t;
    } rows[] = {{"serializer write", ourWrite}, {"serializer read", ourRead},  {"boost write", boostWrite},
                {"boost read", boostRead},      {"cereal write", cerealWrite}, {"cereal read", cerealRead}};
    for (const auto& r : rows)
        printf("%s objs/s: %.0f (median of %d: %.3f s)\n", r.name, COUNT / r.t.median(), REPETITIONS,
               r.t.median());
    printf("ratio ours/boost (time) write: %.2f\n", ourWrite.median() / boostWrite.median());
    printf("ratio ours/boost (time) read: %.2f\n", ourRead.median() / boostRead.median());
    printf("ratio ours/cereal (time) write: %.2f\n", ourWrite.median() / cerealWrite.median());
    printf("ratio ours/cereal (time) read: %.2f\n", ourRead.median() / cerealRead.median());
    return 0;
}
