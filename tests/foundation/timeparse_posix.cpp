#include "TimeParseCases.h"
#include <gtest/gtest.h>

// The C library's strptime gives the same fields, rest and refusals.
TEST(TimeParse, AgreesWithTheCLibrary) {
    auto libc = [](const char* s, const char* f, struct tm* t) -> const char* { return strptime(s, f, t); };
    for (const auto& c : tmaintest::TIME_CASES)
        EXPECT_EQ(tmaintest::parseTime(c, libc), tmaintest::parseTime(c, tstrptime))
            << c.text << " / " << c.format;
}
