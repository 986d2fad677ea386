// Parameter conversions and kinds; ExtraData, ExtraDatable and ParamListEntry.
#include <tests/support/TestSupport.h>
#include <tmain/core/ExtraDatable.h>
#include <tmain/core/ObjectFactory.h>
#include <tmain/core/ParamListEntry.h>
#include <tmain/core/Serializer.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/ByteOutputStream.h>
#include <tmain/stream/IOException.h>

using namespace tarso::core;
using ::core::SmartPtr;
using tarso::math::Vector3;

namespace {
std::string conversions(const Parameter& p) {
    Vector3 v = p;
    Object* o = p;
    return tmaintest::cat{(int)p, (float)p, (bool)p,        (long long)p, v.x,
                          v.y,    v.z,      (const char*)p, o != nullptr};
}

class Note : public ExtraDataEntry {
    TMAIN_TYPE()
public:
    Note(const char* name = "") : ExtraDataEntry(name) {}
    using Object::clone;
    Object* clone(CloningOptions& o) const override {
        Note* n = new Note();
        _clone(n, o);
        return n;
    }
};
const core::Type Note::TYPE("partest::Note", &ExtraDataEntry::TYPE);
TMAIN_REGISTER_CREATABLE(Note);
} // namespace

TEST(Parameter, ConversionsOfEveryKind) {
    Parameter none("n"), b("b"), i("i"), f("f"), s("s"), s2("s2"), v("v"), l("l"), o("o");
    b = true;
    i = -5;
    f = 2.75f;
    s = "1 2";
    s2 = "True";
    v = Vector3(-1.5f, 2, 3);
    l = 0x100000007LL;
    SmartPtr<Object> obj = new NamedObject("x");
    o = obj.get();
    EXPECT_EQ(2, obj->getRefCount());
    EXPECT_JOINED("0|1|2|3|4|4|5|6|7|", none.getValueType(), b.getValueType(), i.getValueType(),
                  f.getValueType(), s.getValueType(), s2.getValueType(), v.getValueType(), l.getValueType(),
                  o.getValueType());
    EXPECT_EQ("0|0|0|0|0|0|0||0|", conversions(none));
    EXPECT_EQ("1|1|1|1|1|1|1|true|0|", conversions(b));
    EXPECT_EQ("-5|-5|0|-5|-5|-5|-5|<int>|0|", conversions(i));
    EXPECT_EQ("2|2.75|1|2|2.75|2.75|2.75|<float>|0|", conversions(f));
    EXPECT_EQ("1|1|0|1|1|2|0|1 2|0|", conversions(s));
    EXPECT_EQ("0|0|0|0|0|0|0|True|0|", conversions(s2));
    EXPECT_EQ("-1|-1.5|0|-1|-1.5|2|3|<Vector3>|0|", conversions(v));
    EXPECT_EQ("7|4.29497e+09|1|4294967303|4.29497e+09|4.29497e+09|4.29497e+09|<long>|0|", conversions(l));
    EXPECT_JOINED("0|1|<object>|", (float)o, (bool)o, (const char*)o);
    EXPECT_EQ((long long)(uintptr_t)obj.get(), (long long)o);
    EXPECT_EQ(obj.get(), (Object*)o);
    // Copies keep the kind and value; assigning a value changes the kind.
    Parameter copy(o), text(s);
    EXPECT_EQ(3, obj->getRefCount());
    o = 1.5f;
    copy = (const char*)text;
    EXPECT_EQ(1, obj->getRefCount());
    EXPECT_JOINED("3|4|1 2|o|", o.getValueType(), copy.getValueType(), (const char*)copy, copy.getName());
    copy = (const char*)copy; // from its own text
    EXPECT_STREQ("1 2", copy);
}

TEST(Parameter, SerializedRoundTripAndExtraData) {
    ObjectFactory<Object> factory;
    SmartPtr<ExtraData> data = new ExtraData();
    SmartPtr<Note> n1 = new Note("one"), n2 = new Note("two");
    EXPECT_JOINED("1|1|0|0|2|", data->addEntry(&Note::TYPE, n1), data->addEntry(&Note::TYPE, n2),
                  data->addEntry(&Note::TYPE, n1), data->addEntry(nullptr, n1), data->getEntryCount());
    tarso::stream::ByteOutputStream out;
    out.open(tarso::stream::Stream::OM_WRITE);
    {
        Serializer s(&factory);
        s.setVersion(Serializer::VERSION_1_0_0_2);
        Parameter* p = new Parameter("p");
        *p = (long long)-3;
        s.addObject(data);
        s.addObject(p);
        s.write(&out, true);
    }
    tarso::stream::ByteInputStream in(out.getBytes(), out.getSize(), false);
    Serializer r(&factory);
    r.read(&in, true);
    ExtraData* back = static_cast<ExtraData*>(r.getObject(0));
    ASSERT_TRUE(back && back->instanceOf(ExtraData::TYPE));
    std::string names;
    for (auto& e : *back)
        names += std::string(e.first->getName()) + ":" + e.second->getName() + ",";
    EXPECT_EQ("partest::Note:one,partest::Note:two,", names);
    EXPECT_JOINED("6|-3|", static_cast<Parameter*>(r.getObject(1))->getValueType(),
                  (long long)*static_cast<Parameter*>(r.getObject(1)));
    SmartPtr<Object> cloned = data->clone();
    EXPECT_NE(n1.get(), static_cast<ExtraData*>(cloned.get())->getEntry(&Note::TYPE));
    data->clear(&Note::TYPE);
    EXPECT_JOINED("0|1|", data->getEntryCount(), n1->getRefCount());

    ExtraDatable holder;
    holder.setExtraData(back);
    EXPECT_TRUE(holder.hasExtraData());
    EXPECT_MESSAGE(tarso::stream::IOException, "Deserialize legacy from a non legacy object (Extra datable)",
                   holder.deserializeLegacy(&in, &r));
    EXPECT_MESSAGE(tarso::stream::IOException,
                   "Deserializing ExtraData with legacy version, but ExtraData has no legacy version!",
                   back->deserializeLegacy0(&in, &r));
    EXPECT_MESSAGE(tarso::stream::IOException,
                   "Deserializing ExtraDataEntry with legacy version, but ExtraData has no legacy version!",
                   n1->deserializeLegacy1(&in, &r, 1));
    ParamListEntry entry(new ParamListEntry::ParamList{new Parameter("a", Parameter::PT_INT)});
    EXPECT_JOINED("ParamListEntry|1|", entry.getName(), entry.getParamList()->size());
    EXPECT_MESSAGE(core::UnsupportedOperationException, "Serialize for ParamListEntry is not yet coded",
                   entry.serialize(&out, &r));
    EXPECT_MESSAGE(core::UnsupportedOperationException,
                   "deserializeLegacy0 for ParamListEntry is not yet coded",
                   entry.deserializeLegacy0(&in, &r));
    EXPECT_MESSAGE(core::UnsupportedOperationException, "Deserializer_1 for ParamListEntry is not yet coded",
                   entry.deserializeLegacy1(&in, &r, 1));
}
