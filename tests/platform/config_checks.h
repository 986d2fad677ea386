#pragma once
// Values of every kind written and read back the same way on every kind of
// configuration store; shared by the configuration store tests.
#include "../support/TestSupport.h"
#include <string>
#include <tmain/foundation/Exception.h>
#include <tmain/platform/ConfigurationStore.h>
#include <vector>

namespace configtest {
using namespace tarso::platform;
inline std::string names(const std::vector<std::string>& v) {
    std::string s;
    for (const auto& n : v)
        s += n + ",";
    return s;
}
// Values of every kind, in a container and a sub-container; the same calls
// on both kinds of store.
inline void fill(ConfigurationStore* s) {
    EXPECT_TRUE(s->setParameter("b", true) && s->setParameter("i", -3) && s->setParameter("l", 1LL << 40) &&
                s->setParameter("f", 0.1f) && s->setParameter("s", "x\"y\xC3\xA9") &&
                s->setParameter("x/y", 3));
    tarso::core::Parameter p("p");
    p = 7;
    EXPECT_TRUE(s->setParameter(&p));
}
inline std::string readBack(ConfigurationStore* s) {
    std::string out;
    return tmaintest::cat{s->getParameterBool("b"),
                          s->getParameterInt("i"),
                          s->getParameterLong("l"),
                          s->getParameterFloat("f") == 0.1f,
                          s->getParameterString("s", out, nullptr),
                          s->getParameterInt("x/y"),
                          s->getParameterInt("missing", 5),
                          (int)*s->getParameter("p"),
                          s->getParameterString("nope", out, "dflt"),
                          s->hasParameter(""),
                          s->hasParameter("i")};
}
} // namespace configtest
