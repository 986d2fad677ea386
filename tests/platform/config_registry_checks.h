#pragma once
// The registry key operations the registry store relies on, run the same way
// against the Linux key tree and, built with mingw, against Wine's registry.
// Returns a transcript of codes, types and names; both must be equal.
#include <algorithm>
#include <string>
#include <tmain/platform/detail/RegistryKey.h>
#include <vector>

/// The transcript both must give.
#define REGISTRY_TRANSCRIPT                                                                                  \
    "2|0|0|0|0|0|0|0|0|4:4:9|0|11:8:2|0|1:5:116|0|3:4:0|2|0|Sub,/Count,big,f,s,|0|0|Deep,/|2|0|0|0|/"        \
    "Count,big,f,|0|0|2|"

inline std::string registryTranscript(const std::string& root) {
    using namespace tarso::platform::detail;
    std::string t;
    auto add = [&](const std::string& s) { t += s + "|"; };
    auto code = [&](long c) { add(std::to_string(c)); };
    auto list = [&](RegistryKey& k) {
        std::vector<std::string> keys, values;
        code(k.enumerate(&keys, &values));
        std::sort(values.begin(), values.end());
        std::string s;
        for (auto& n : keys)
            s += n + ",";
        s += "/";
        for (auto& n : values)
            s += n + ",";
        add(s);
    };
    RegistryKey k;
    std::string base = "Software\\" + root;
    code(k.open(0, base + "\\A", false, false));
    code(k.open(0, base + "\\A\\Sub\\Deep", true, true));
    code(k.open(0, base + "\\A", true, true));
    int dword = 7;
    long long qword = 0x100000002LL;
    float f = 0.5f;
    code(k.set("Count", RK_DWORD, &dword, 4));
    code(k.set("big", RK_QWORD, &qword, 8));
    code(k.set("s", RK_SZ, "text", 5));
    code(k.set("f", RK_BINARY, &f, 4));
    dword = 9;
    code(k.set("COUNT", RK_DWORD, &dword, 4)); // same value, first spelling kept
    unsigned type = 0;
    std::string data;
    for (const char* name : {"count", "BIG", "s", "f"}) {
        code(k.query(name, type, data));
        add(std::to_string(type) + ":" + std::to_string(data.size()) + ":" +
            std::to_string((unsigned char)data[0]));
    }
    code(k.query("missing", type, data));
    list(k);
    RegistryKey sub;
    code(sub.open(0, base + "\\a\\SUB", false, false));
    list(sub);
    code(k.removeValue("missing"));
    code(k.removeValue("S"));
    code(k.removeKey("sub"));
    list(k);
    code(k.open(0, "Software", false, true));
    code(k.removeKey(root.c_str()));
    code(k.open(0, base, false, false));
    return t;
}
