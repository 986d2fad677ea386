// Writes 1,000,000 small objects (a name and three integers; every 10th one
// references a shared object) to an object stream in memory and reads them
// back, then does the same with cereal's binary archive over std::shared_ptr
// in the same run, and prints objects per second and the time ratios
// (ours / cereal). Each path runs REPETITIONS times; the best time counts.
#include <tmain/core/NamedObject.h>
#include <tmain/core/ObjectFactory.h>
#include <tmain/core/Serializer.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/ByteOutputStream.h>

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

namespace {

const unsigned COUNT = 1000000;
const int REPETITIONS = 3;

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

struct CItem {
    std::string name;
    int a = 0, b = 0, c = 0;
    std::shared_ptr<CItem> ref;
    template <class Archive> void serialize(Archive& ar) { ar(name, a, b, c, ref); }
};

std::string nameOf(unsigned i) {
    return "item-" + std::to_string(i);
}

typedef std::chrono::steady_clock Clock;
double seconds(Clock::time_point since) {
    return std::chrono::duration<double>(Clock::now() - since).count();
}

[[noreturn]] void fail(const char* what) {
    fprintf(stderr, "bench_serializer: %s\n", what);
    exit(1);
}

// Checks names, numbers and the sharing of what was read.
template <class Get> void verify(Get get, unsigned n) {
    if (n != COUNT)
        fail("wrong object count read back");
    for (unsigned i = 0; i < COUNT; i += 9973) {
        auto r = get(i);
        if (r.name != nameOf(i) || r.a != (int)i || r.c != (int)(i ^ 0x5a5a))
            fail("wrong object read back");
        if ((i % 10 == 0) != (r.ref != nullptr) || (r.ref && r.ref != get(10).ref))
            fail("wrong shared reference read back");
    }
}
struct View {
    std::string name;
    int a, c;
    const void* ref;
};

} // namespace

int main() {
    tc::ObjectFactory<tc::Object> factory;
    ::core::SmartPtr<Item> shared(new Item());
    shared->setName("shared");
    ::core::SmartPtr<Bag> bag(new Bag());
    auto cshared = std::make_shared<CItem>();
    cshared->name = "shared";
    std::vector<std::shared_ptr<CItem>> citems;
    for (unsigned i = 0; i < COUNT; ++i) {
        ::core::SmartPtr<Item> it(new Item());
        it->setName(nameOf(i).c_str());
        it->mA = (int)i;
        it->mB = (int)(i * 7);
        it->mC = (int)(i ^ 0x5a5a);
        auto c = std::make_shared<CItem>();
        c->name = nameOf(i);
        c->a = it->mA;
        c->b = it->mB;
        c->c = it->mC;
        if (i % 10 == 0) {
            it->mRef = shared;
            c->ref = cshared;
        }
        bag->mItems.push_back(it);
        citems.push_back(c);
    }

    double ourWrite = 1e9, ourRead = 1e9, cerealWrite = 1e9, cerealRead = 1e9;
    size_t ourBytes = 0, cerealBytes = 0;
    for (int rep = 0; rep < REPETITIONS; ++rep) {
        // Ours. The block grows in 16 MiB steps (its default 256-byte step
        // would copy the whole block on almost every record).
        ts::ByteOutputStream out(1u << 20, 16u << 20);
        out.open(ts::Stream::OM_WRITE | ts::Stream::OM_BINARY);
        Clock::time_point t = Clock::now();
        {
            tc::Serializer w(&factory);
            w.setVersion(tc::Serializer::VERSION_1_0_0_2);
            w.addObject(bag.get());
            w.write(&out, true);
        }
        ourWrite = std::min(ourWrite, seconds(t));
        ourBytes = out.getSize();
        t = Clock::now();
        {
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
                (unsigned)back->mItems.size());
        }
        ourRead = std::min(ourRead, seconds(t));

        // cereal.
        std::ostringstream os;
        t = Clock::now();
        {
            cereal::BinaryOutputArchive ar(os);
            ar(citems);
        }
        cerealWrite = std::min(cerealWrite, seconds(t));
        const std::string bytes = os.str();
        cerealBytes = bytes.size();
        t = Clock::now();
        {
            std::istringstream is(bytes);
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
                (unsigned)back.size());
        }
        cerealRead = std::min(cerealRead, seconds(t));
    }

    printf("objects: %u (+1 shared), stream %zu bytes, cereal %zu bytes\n", COUNT, ourBytes, cerealBytes);
    printf("serializer write objs/s: %.0f\n", COUNT / ourWrite);
    printf("serializer read objs/s: %.0f\n", COUNT / ourRead);
    printf("cereal write objs/s: %.0f\n", COUNT / cerealWrite);
    printf("cereal read objs/s: %.0f\n", COUNT / cerealRead);
    printf("ratio ours/cereal (time) write: %.2f\n", ourWrite / cerealWrite);
    printf("ratio ours/cereal (time) read: %.2f\n", ourRead / cerealRead);
    return 0;
}
