#include "host/plan/Duration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "host/Utf8.h"

namespace Host {
namespace {

using testing::HasSubstr;

constexpr double infinity = std::numeric_limits<double>::infinity();

std::string refusal(std::string_view text) {
    try {
        parseDuration(text);
    } catch (const DurationError& error) {
        return error.what();
    }
    return "taken";
}

TEST(Duration, NumberAloneIsSeconds) {
    EXPECT_EQ(parseDuration("90"), 90.0);
    EXPECT_EQ(parseDuration("0"), 0.0);
    EXPECT_EQ(parseDuration("007"), 7.0);
    EXPECT_EQ(parseDuration("1.25"), 1.25);
    EXPECT_EQ(parseDuration(".5"), 0.5);
}

TEST(Duration, EveryUnitHasItsNames) {
    for (const char* text : {"1us", "1usec", "1\u00b5s", "1\u03bcs"})
        EXPECT_EQ(parseDuration(text), 1e-6) << text;
    for (const char* text : {"1ms", "1msec"}) EXPECT_EQ(parseDuration(text), 1e-3) << text;
    for (const char* text : {"1s", "1sec", "1second", "1seconds"})
        EXPECT_EQ(parseDuration(text), 1.0) << text;
    for (const char* text : {"1m", "1min", "1minute", "1minutes"})
        EXPECT_EQ(parseDuration(text), 60.0) << text;
    for (const char* text : {"1h", "1hr", "1hour", "1hours"})
        EXPECT_EQ(parseDuration(text), 3600.0) << text;
    for (const char* text : {"1d", "1day", "1days"})
        EXPECT_EQ(parseDuration(text), 86400.0) << text;
    for (const char* text : {"1w", "1week", "1weeks"})
        EXPECT_EQ(parseDuration(text), 604800.0) << text;
}

TEST(Duration, PartsAddUp) {
    EXPECT_EQ(parseDuration("1min 30s"), 90.0);
    EXPECT_EQ(parseDuration("2h30min"), 9000.0);
    EXPECT_EQ(parseDuration(" 1 h\t2 min 3.5 s "), 3723.5);
    EXPECT_EQ(parseDuration("30s 1min"), 90.0);
    EXPECT_EQ(parseDuration("55s500ms"), 55.5);
}

TEST(Duration, FractionsAreTheNearestDouble) {
    EXPECT_EQ(parseDuration("1.1s"), 1.1);
    EXPECT_EQ(parseDuration("7ms"), 0.007);
    EXPECT_EQ(parseDuration("0.1"), 0.1);
    EXPECT_EQ(parseDuration("1.5ms"), 0.0015);
    EXPECT_EQ(parseDuration("0.5us"), 1e-6);
}

TEST(Duration, InfinityIsAWord) {
    EXPECT_EQ(parseDuration("infinity"), infinity);
    EXPECT_EQ(parseDuration(" infinity "), infinity);
}

TEST(Duration, RefusalsNameTheRemedy) {
    EXPECT_EQ(refusal(""), "an empty text is no duration; write one such as 30s");
    EXPECT_EQ(refusal("  "), "an empty text is no duration; write one such as 30s");
    EXPECT_EQ(refusal("30 secs"),
              "\"30 secs\" is no duration: there is no unit \"secs\"; did you mean \"sec\"?");
    EXPECT_EQ(refusal("5 mins"),
              "\"5 mins\" is no duration: there is no unit \"mins\"; did you mean \"min\"?");
    EXPECT_EQ(refusal("3 fortnights"),
              "\"3 fortnights\" is no duration: there is no unit \"fortnights\"; the units are us, "
              "ms, s, min, h, d and w");
    EXPECT_EQ(refusal("3x"),
              "\"3x\" is no duration: there is no unit \"x\"; the units are us, ms, s, min, h, d "
              "and w");
    EXPECT_EQ(refusal("-5s"), "\"-5s\" is no duration: it is never negative");
    EXPECT_EQ(refusal("1min -5s"), "\"1min -5s\" is no duration: it is never negative");
    EXPECT_EQ(refusal("1,5s"),
              "\"1,5s\" is no duration: the decimal mark is a point, such as 1.5s");
    EXPECT_EQ(refusal("1.s"), "\"1.s\" is no duration: a digit follows the point, such as 1.5s");
    EXPECT_EQ(refusal("1:30"),
              "\"1:30\" is no duration: write its parts with units, such as 1min 30s");
    EXPECT_EQ(refusal("1min 30"), "\"1min 30\" is no duration: 30 has no unit; write such as 30s");
    EXPECT_EQ(refusal("1 30s"), "\"1 30s\" is no duration: 1 has no unit; write such as 1s");
    EXPECT_EQ(refusal("soon"),
              "\"soon\" is no duration: each part begins with a number, such as 1min 30s");
    EXPECT_EQ(refusal("inf"), "\"inf\" is no duration: write infinity for a time without end");
    EXPECT_EQ(refusal("never"), "\"never\" is no duration: write infinity for a time without end");
    EXPECT_EQ(refusal("0.1us"),
              "\"0.1us\" is no duration: it is shorter than 1us, the shortest there is");
    EXPECT_EQ(refusal("15000w"),
              "\"15000w\" is no duration: it is longer than 285 years; write "
              "infinity for no end");
}

TEST(Duration, NothingElseIsTaken) {
    for (const char* text :
         {"1e3", "0x10", "+5s", "1..5s", "1.5.5s", "s", "infinity s", "1s,", "1;", "\xff", "1\xff",
          "5 \u202e", "1S x", "1 s s", "--1", ".", "1.2x"})
        EXPECT_NE(refusal(text), "taken") << text;
    EXPECT_NE(refusal(std::string("1\0s", 3)), "taken");
    EXPECT_NE(refusal(std::string(100000, '9')), "taken");
    EXPECT_NE(refusal("0." + std::string(100000, '0') + "1s"), "taken");
    EXPECT_EQ(utf8Fault(refusal("1\xff")), std::string::npos);
}

TEST(Duration, MostIsTakenAndMoreIsNot) {
    EXPECT_EQ(parseDuration("9000000000s"), 9e9);
    EXPECT_NE(refusal("9000000000.000001s"), "taken");
    EXPECT_NE(refusal("9000000000s 1us"), "taken");
    EXPECT_NE(refusal("99999999999999999999999999999999999999w"), "taken");
}

TEST(DurationText, SpeaksInTheLargestUnits) {
    EXPECT_EQ(durationText(0), "0s");
    EXPECT_EQ(durationText(-0.0), "0s");
    EXPECT_EQ(durationText(5e-6), "5us");
    EXPECT_EQ(durationText(0.0015), "1.5ms");
    EXPECT_EQ(durationText(0.5), "500ms");
    EXPECT_EQ(durationText(0.999999), "999.999ms");
    EXPECT_EQ(durationText(0.9999999), "1s");
    EXPECT_EQ(durationText(2.5), "2.5s");
    EXPECT_EQ(durationText(59.000001), "59.000001s");
    EXPECT_EQ(durationText(60), "1min");
    EXPECT_EQ(durationText(90), "1min 30s");
    EXPECT_EQ(durationText(3600), "1h");
    EXPECT_EQ(durationText(3605.25), "1h 5.25s");
    EXPECT_EQ(durationText(86400.0 * 14), "14d");
    EXPECT_EQ(durationText(86400.0 * 3 + 4 * 3600 + 61), "3d 4h 1min 1s");
    EXPECT_EQ(durationText(1e300), "1e+300s");
    EXPECT_EQ(durationText(infinity), "infinity");
    EXPECT_EQ(durationText(-infinity), "-infinity");
    EXPECT_EQ(durationText(std::nan("")), "unknown");
}

TEST(DurationText, DifferencesMayBeNegative) {
    EXPECT_EQ(durationText(-1.5), "-1.5s");
    EXPECT_EQ(durationText(-1e-9), "0s");
}

TEST(DurationText, IsRoundedToItsAccuracy) {
    EXPECT_EQ(durationText(1.26, 0.1), "1.3s");
    EXPECT_EQ(durationText(1.24, 0.1), "1.2s");
    EXPECT_EQ(durationText(59.96, 0.1), "1min");
    EXPECT_EQ(durationText(90.0999985, 1e-3), "1min 30.1s");
    EXPECT_EQ(durationText(0.04, 0.1), "0s");
    EXPECT_EQ(durationText(89, 60), "1min");
    EXPECT_EQ(durationText(1.5, 0), "1.5s");
    EXPECT_EQ(durationText(100000, infinity), "1d");
}

TEST(DurationText, ReadsBackAsTheSameDouble) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 20000; ++i) {
        const auto digits = std::uniform_int_distribution<int>(0, 15)(random);
        const auto most = static_cast<std::int64_t>(9 * std::pow(10, digits));
        const double seconds =
            static_cast<double>(std::uniform_int_distribution<std::int64_t>(0, most)(random)) / 1e6;
        EXPECT_EQ(parseDuration(durationText(seconds)), seconds) << durationText(seconds);
    }
}

}  // namespace
}  // namespace Host
