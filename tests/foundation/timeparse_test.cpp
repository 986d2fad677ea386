#include "TimeParseCases.h"
#include <gtest/gtest.h>

TEST(TimeParse, FieldsRestAndRefusals) {
    for (const auto& c : tmaintest::TIME_CASES)
        EXPECT_EQ(c.expected, tmaintest::parseTime(c, tstrptime)) << c.text << " / " << c.format;
    struct tm t = {};
    EXPECT_EQ(nullptr, tstrptime(nullptr, "%Y", &t));
    EXPECT_EQ(nullptr, tstrptime("1", nullptr, &t));
}
