#include "host/JsonDocument.h"

#include <gtest/gtest.h>

#include <limits>

namespace Host {
namespace {

TEST(JsonDocument, IndentsAndWritesWholeNumbersAsSuch) {
    const Json value =
        Json::Object{{"a", Json::Array{1.0, 2.5, -3.0}}, {"b", Json::Object{}}, {"c", Json()}};

    EXPECT_EQ(jsonDocument(value),
              "{\n"
              "  \"a\": [\n"
              "    1,\n"
              "    2.5,\n"
              "    -3\n"
              "  ],\n"
              "  \"b\": {},\n"
              "  \"c\": null\n"
              "}\n");
}

TEST(JsonDocument, WritesNullForWhatIsNoFiniteNumber) {
    EXPECT_EQ(jsonDocument(std::numeric_limits<double>::infinity()), "null\n");
    EXPECT_EQ(jsonDocument(std::numeric_limits<double>::quiet_NaN()), "null\n");
}

TEST(JsonDocument, ReadsBack) {
    const Json value = Json::Object{{"x\n\"", 1e300}, {"y", 0.1}, {"z", 9007199254740993.0}};

    EXPECT_EQ(parseJson(jsonDocument(value)), value);
}

}  // namespace
}  // namespace Host
