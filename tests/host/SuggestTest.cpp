#include "host/Suggest.h"

#include <gtest/gtest.h>

namespace Host {
namespace {

const std::vector<std::string_view> words{"replay", "simulate", "check"};

TEST(Suggestion, IsTheNearestWord) {
    EXPECT_EQ(suggestion("rplay", words), "; did you mean \"replay\"?");
    EXPECT_EQ(suggestion("reply", words), "; did you mean \"replay\"?");
    EXPECT_EQ(suggestion("Chekc", words), "; did you mean \"check\"?");
    EXPECT_EQ(suggestion("simulation", words), "");
}

TEST(Suggestion, IsNothingWhenNoWordIsNear) {
    EXPECT_EQ(suggestion("frobnicate", words), "");
    EXPECT_EQ(suggestion("", words), "");
    EXPECT_EQ(suggestion(std::string(100000, 'x'), words), "");
    EXPECT_EQ(suggestion("replay", {}), "");
    EXPECT_EQ(suggestion("q", {"a", "b"}), "") << "they share nothing";
    EXPECT_EQ(suggestion("A", {"a"}), "; did you mean \"a\"?");
    EXPECT_EQ(suggestion("ab", {"a"}), "; did you mean \"a\"?");
}

}  // namespace
}  // namespace Host
