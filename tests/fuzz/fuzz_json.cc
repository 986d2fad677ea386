// libFuzzer harness for JSObject's parser and dumper.
//
// The input is a JSON text. An accepted document must dump, parse again and
// dump to the same text (the dump is a fixed point), and every member and
// element must answer the typed getters without harm. A refused one must
// throw core::Exception "Unable to parse JSON input: ..." and nothing else.
// Seeds: a few JSONTestSuite files of each class.
#include "fuzz_support.h"

#include <cstring>
#include <string>
#include <tmain/foundation/Exception.h>
#include <tmain/json/JSObject.h>
#include <tmain/stream/ByteInputStream.h>

using tarso::json::JSObject;

namespace {
JSObject* parse(const void* data, size_t size) {
    tarso::stream::ByteInputStream in(data, (unsigned)size, false);
    return JSObject::parse(&in);
}

// Touches every child through the caches and getters, a few levels down.
void walk(JSObject* o, int depth) {
    if (!o || depth > 8)
        return;
    unsigned n = o->getLength();
    for (unsigned i = 0; i < n && i < 16; ++i) {
        o->getInt(i, 1);
        o->getString(i);
        walk(o->get(i), depth + 1);
    }
    for (JSObject::JSIterator it = o->begin(); !it.isEnd(); ++it) {
        o->getDouble(it.getKey(), 0.5);
        o->getULong(it.getKey());
        walk(it.getValue(), depth + 1);
    }
    o->asLong(3);
    o->asString("x");
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static bool quiet = (fuzz::silenceLog(), true);
    (void)quiet;
    if (size > (1u << 20))
        return 0;
    ::core::SmartPtr<JSObject> doc;
    try {
        doc = parse(data, size);
    } catch (const ::core::Exception& e) {
        if (strncmp(e.getMessage(), "Unable to parse JSON input: ", 28) != 0)
            fuzz::fail("fuzz_json", e.getMessage());
        return 0;
    }
    std::string first, second;
    doc->dump(first);
    ::core::SmartPtr<JSObject> again = parse(first.data(), first.size());
    again->dump(second);
    if (first != second)
        fuzz::fail("fuzz_json", "dump is not a fixed point");
    walk(doc, 0);
    return 0;
}
