// JSObject: JSONTestSuite, byte-exact dumps, accessors and caches, hostile input.
#include <climits>
#include <dirent.h>
#include <set>
#include <tests/support/TestSupport.h>
#include <tmain/foundation/Exception.h>
#include <tmain/json/JSObject.h>
#include <tmain/stream/ByteInputStream.h>

using namespace tarso::json;
using ::core::SmartPtr;

namespace {
const std::string PREFIX = "Unable to parse JSON input: ";

SmartPtr<JSObject> parse(const std::string& text) {
    tarso::stream::ByteInputStream in(text.data(), (unsigned)text.size(), false);
    return JSObject::parse(&in);
}
std::string parseError(const std::string& text) {
    return tmaintest::messageOf<core::Exception>([&] { parse(text); });
}
std::string dumped(const JSObject& o) {
    std::string s;
    o.dump(s);
    return s;
}
} // namespace

TEST(JSObject, JSONTestSuite) {
    // Jansson without decoding flags refuses top-level scalars and \u0000.
    const std::set<std::string> refusedY = {"y_object_escaped_null_in_key.json",
                                            "y_string_null_escape.json",
                                            "y_string_space.json",
                                            "y_structure_lonely_false.json",
                                            "y_structure_lonely_int.json",
                                            "y_structure_lonely_negative_real.json",
                                            "y_structure_lonely_null.json",
                                            "y_structure_lonely_string.json",
                                            "y_structure_lonely_true.json",
                                            "y_structure_string_empty.json"};
    std::string dir = std::string(TMAIN_SOURCE_DIR) + "/tests/json/JSONTestSuite/test_parsing/";
    std::map<std::string, int> counts;
    DIR* d = opendir(dir.c_str());
    ASSERT_TRUE(d);
    while (dirent* e = readdir(d)) {
        std::string name = e->d_name;
        if (name.size() < 3 || name[1] != '_')
            continue;
        SCOPED_TRACE(name);
        std::string text = tmaintest::readFile(dir + name), err, first, second;
        SmartPtr<JSObject> o;
        try {
            o = parse(text);
            o->dump(first);
            parse(first)->dump(second);
            EXPECT_EQ(first, second);
        } catch (const core::Exception& ex) {
            err = ex.getMessage();
            EXPECT_EQ(PREFIX, err.substr(0, PREFIX.size()));
        }
        bool accepted = err.empty();
        if (name[0] == 'y')
            EXPECT_EQ(!refusedY.count(name), accepted);
        else if (name[0] == 'n')
            EXPECT_FALSE(accepted);
        counts[name.substr(0, 1) + (accepted ? "+" : "-")]++;
    }
    closedir(d);
    EXPECT_JOINED("85|10|0|188|3|32|", counts["y+"], counts["y-"], counts["n+"], counts["n-"], counts["i+"],
                  counts["i-"]);
}

TEST(JSObject, ParseFailuresAndLog) {
    tmaintest::ScopedLogCapture log;
    EXPECT_EQ(PREFIX + "'[' or '{' expected near '42'", parseError("42"));
    EXPECT_TRUE(log->contains(PREFIX + "'[' or '{' expected near '42' (1:2)", logging::LEVEL_ERROR));
    EXPECT_MESSAGE(core::IllegalArgumentException, "NULL input stream", JSObject::parse(nullptr));
    EXPECT_MESSAGE(core::IllegalArgumentException, "Invalid JSON type. Expected T_OBJECT or T_ARRAY",
                   JSObject{JSObject::T_STRING});
    // Hostile input: deep nesting, numbers out of range, bad UTF-8, lone surrogates.
    for (const char* bad : {"[1e999]", "[-123456789012345678901234567890]", "[\"\xC3\x28\"]", "[\"\\ud800\"]",
                            "{\"\xFF\":1}", "[\"\xED\xA0\x80\"]"})
        EXPECT_EQ(PREFIX, parseError(bad).substr(0, PREFIX.size())) << bad;
    EXPECT_EQ(PREFIX + "maximum parsing depth reached near '['", parseError(std::string(100000, '[')));
}

TEST(JSObject, ByteExactDumps) {
    JSObject o(JSObject::T_OBJECT), ws(JSObject::T_OBJECT);
    o.set("z", 1);
    o.set("a", 2.0);
    o.set("m", -0.0);
    o.set("s", "q\"\\/\n\t\x01\x1f\xC3\xA9");
    o.set("u", 0xFFFFFFFFFFFFFFFFULL);
    o.set("b", false);
    o.set("f", 0.1f);
    o.set("e", 1e300);
    o.set("\xFF", 5); // an invalid UTF-8 key is discarded
    o.set("n", (JSObject*)nullptr);
    o.set("z", 3u); // replacing keeps the member's place
    EXPECT_EQ(
        "{\"z\":3,\"a\":2.0,\"m\":-0.0,\"s\":\"q\\\"\\\\/\\n\\t\\u0001\\u001F\xC3\xA9\",\"u\":-1,\"b\":false,"
        "\"f\":0.10000000149011612,\"e\":1.0000000000000001e300,\"n\":null}",
        dumped(o));
    EXPECT_EQ(0xFFFFFFFFFFFFFFFFULL, o.getULong("u"));
    EXPECT_JOINED("true|42|\"s\"|1.0|-9223372036854775808|4294967295|", dumped(JSObject(true)),
                  dumped(JSObject(42)), dumped(JSObject("s")), dumped(JSObject(1.0)),
                  dumped(JSObject(0x8000000000000000ULL)), dumped(JSObject(UINT_MAX)));
    EXPECT_EQ("{\"a\":[1,2]}", dumped(*parse("  {\"a\" : [ 1 , 2 ] }  ")));
}

TEST(JSObject, AccessorsAndConversions) {
    SmartPtr<JSObject> o = parse("{\"i\":2.9,\"s\":\"3\",\"z\":0,\"t\":true,\"n\":null,\"big\":-7e30,"
                                 "\"a\":[-5,\"x\",false,{\"k\":1}]}");
    EXPECT_JOINED("2|7|1|1|7|-1|4294967291|-9223372036854775808|0|x|d|2.9|", o->getInt("i", 7),
                  o->getInt("s", 7), o->getBool("z", true), o->getBool("t"), o->getInt("missing", 7),
                  o->getInt(0u, -1), o->get("a")->getUInt(0u), o->getLong("big"), o->getInt("t"),
                  o->get("a")->getString(1u), o->get("a")->getString(9u, "d"), o->getDouble("i"));
    EXPECT_JOINED("0|1|2|5|6|3|6|T_UNKNOWN|4|0|1|0|", o->getType(), o->get("a")->getType(), o->getType("s"),
                  o->getType("t"), o->getType("n"), o->getType("z"), o->getType("nope"),
                  JSObject::unparse((JSObject::Type)9), o->get("a")->getLength(),
                  o->get("a")->get(3u)->getType(), o->hasKey("n"), o->get("a")->hasKey("k"));
    EXPECT_TRUE(o->get("n")->isNull());
    EXPECT_EQ(nullptr, o->get("nope"));
    EXPECT_EQ(nullptr, o->get(0u)); // an object has no elements
    EXPECT_JOINED("-5|x|3.5|", o->get("a")->get(0u)->asInt(), o->get("a")->get(1u)->asString(),
                  JSObject(3.5f).asDouble());
    std::string keys;
    for (JSObject::JSIterator it = o->get("a")->get(3u)->begin(); !it.isEnd(); it++)
        keys += it.getKey() + std::to_string(it.getValue()->asInt());
    for (JSObject::JSIterator it = o->begin(); !it.isEnd(); ++it)
        keys += it.getKey();
    EXPECT_EQ("k1isztnbiga", keys);
    EXPECT_TRUE(o->get("s")->begin().isEnd());
}

TEST(JSObject, WrapperCaches) {
    SmartPtr<JSObject> o = new JSObject(JSObject::T_OBJECT);
    o->set("a", new JSObject(JSObject::T_ARRAY));
    JSObject* a = o->get("a");
    EXPECT_EQ(a, o->get("a"));
    for (int i = 0; i < 4; ++i)
        a->append(i * 10);
    a->set(9u, 1.5); // beyond the end: appends
    a->set(0u, std::string("zero"));
    JSObject* e2 = a->get(2u);
    JSObject* e3 = a->get(3u);
    a->remove(1u);
    EXPECT_EQ(e2, a->get(1u));
    EXPECT_EQ(e3, a->get(2u));
    EXPECT_JOINED("zero|20|30|1.5|4|", a->getString(0u), a->get(1u)->asInt(), a->get(2u)->asInt(),
                  a->get(3u)->asDouble(), a->getLength());
    // Changes through a child are seen by the parent; a copy shares the value.
    JSObject* child = new JSObject(JSObject::T_OBJECT);
    o->set("c", child);
    child->set("x", "y");
    JSObject copy(*o);
    copy.set("d", 1);
    o->set("a", 1);
    EXPECT_NE(a, o->get("a"));
    EXPECT_EQ("{\"a\":1,\"c\":{\"x\":\"y\"},\"d\":1}", dumped(*o));
    o->remove("d");
    o->get("c")->clear();
    EXPECT_EQ("{\"a\":1,\"c\":{}}", dumped(copy));
    // Setters on the wrong kind do nothing.
    o->append(1);
    o->set(0u, 2);
    o->get("a")->set("k", 1);
    o->remove(0u);
    EXPECT_EQ("{\"a\":1,\"c\":{}}", dumped(*o));
}

TEST(JSObject, HostileTreesDoNotCrashDump) {
    for (int depth : {2049, 100000}) {
        SmartPtr<JSObject> root = new JSObject(JSObject::T_ARRAY);
        JSObject* cur = root;
        for (int i = 1; i < depth; ++i) {
            cur->append(new JSObject(JSObject::T_ARRAY));
            cur = cur->get(0u);
        }
        std::string out;
        EXPECT_MESSAGE(core::Exception,
                       "Unable to dump JSON output: nested deeper than 2048 levels or cyclic",
                       root->dump(out));
        if (depth == 2049) { // the deeper one goes with its root: neither frees recursively
            root->remove(0u);
            EXPECT_EQ("[]", dumped(*root));
        }
    }
    std::string deepest = std::string(2048, '[') + std::string(2048, ']');
    EXPECT_EQ(deepest, dumped(*parse(deepest)));
    SmartPtr<JSObject> a = new JSObject(JSObject::T_OBJECT), b = new JSObject(JSObject::T_OBJECT);
    a->set("b", b.get());
    b->set("a", a.get());
    std::string out;
    EXPECT_THROW(a->dump(out), core::Exception);
    b->remove("a"); // breaks the cycle so both are freed
    EXPECT_EQ("{\"b\":{}}", dumped(*a));
}
