#include "runtime/LogHandle.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <locale>
#include <string>

#include "runtime/ActivityManager.h"
#include "runtime/Environment.h"
#include "tests/runtime/World.h"

namespace {

using Orv::LogHandle;
using Orv::String;
using RuntimeTest::Lines;
using RuntimeTest::World;

const LogHandle slow("TEST_SLOW", 4, "%s stage %s timed out", "It is slow.", Orv::NoActionRequired,
                     0.0, 1.0, 0);

TEST(LogHandle, HoldsItsDefinition) {
    EXPECT_STREQ(slow.identifier(), "TEST_SLOW");
    EXPECT_EQ(slow.severity(), 4);
    EXPECT_STREQ(slow.format(), "%s stage %s timed out");
    EXPECT_STREQ(slow.explanation(), "It is slow.");
    EXPECT_STREQ(slow.recommendedAction(), Orv::NoActionRequired);
    EXPECT_EQ(slow.first(), 0.0);
    EXPECT_EQ(slow.second(), 1.0);
    EXPECT_EQ(slow.flag(), 0);
}

TEST(LogHandle, IsListedInTheOrderOfDefinitionWhileItIsThere) {
    const auto listed = [] {
        Lines identifiers;
        for (const LogHandle* const handle : LogHandle::definitions())
            identifiers.push_back(handle->identifier());
        return identifiers;
    };
    const Lines before = listed();
    EXPECT_EQ(before.back(), "TEST_SLOW");
    {
        const LogHandle one("TEST_ONE", 4, "", "", "", 0, 1, 0);
        const LogHandle other("TEST_OTHER", 4, "", "", "", 0, 1, 0);
        Lines more = before;
        more.insert(more.end(), {"TEST_ONE", "TEST_OTHER"});
        EXPECT_EQ(listed(), more);
    }
    EXPECT_EQ(listed(), before);
}

TEST(LogHandle, RaisesTheFormattedTextOnceItIsAllowed) {
    World world;

    slow.log(String("Boot"), "early");

    EXPECT_EQ(world.environment.asked, (Lines{"TEST_SLOW"}));
    EXPECT_EQ(world.environment.messages, (Lines{"TEST_SLOW|4|Boot stage early timed out"}));
}

TEST(LogHandle, RaisesNothingWhenItIsNotAllowed) {
    World world;
    world.environment.messagesWanted = false;

    slow.log(String("Boot"), "early");

    EXPECT_EQ(world.environment.asked, (Lines{"TEST_SLOW"}));
    EXPECT_EQ(world.environment.messages, Lines{});
}

TEST(LogHandle, TurnsNumbersIntoTextInAnyLocale) {
    class Grouping final : public std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    World world;
    const LogHandle message("TEST_NUMBER", 3, "%s %s %s", "", Orv::NoActionRequired, 0, 1, 0);
    const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));

    message.log(std::numeric_limits<std::uint32_t>::max(), -1234567,
                std::numeric_limits<std::int64_t>::min());

    std::locale::global(before);
    EXPECT_EQ(world.environment.messages,
              (Lines{"TEST_NUMBER|3|4294967295 -1234567 -9223372036854775808"}));
}

TEST(LogFormat, ReplacesEachConversionByItsArgument) {
    EXPECT_EQ(LogHandle::formatted("%s-%s", {"a", "b"}), "a-b");
    EXPECT_EQ(LogHandle::formatted("%s%s", {"a", "b"}), "ab");
    EXPECT_EQ(LogHandle::formatted("no conversion", {"a"}), "no conversion");
    EXPECT_EQ(LogHandle::formatted("", {}), "");
}

TEST(LogFormat, MissingArgumentsReadAsEmptyAndMoreAreIgnored) {
    EXPECT_EQ(LogHandle::formatted("<%s><%s>", {"a"}), "<a><>");
    EXPECT_EQ(LogHandle::formatted("<%s>", {}), "<>");
    EXPECT_EQ(LogHandle::formatted("<%s>", {"a", "b"}), "<a>");
}

TEST(LogFormat, DoesNotLookIntoArguments) {
    EXPECT_EQ(LogHandle::formatted("%s %s", {"%s", "100%"}), "%s 100%");
}

TEST(LogFormat, OfAPercentSign) {
    EXPECT_EQ(LogHandle::formatted("100%% of %s", {"a"}), "100% of a");
    EXPECT_EQ(LogHandle::formatted("%%s", {"a"}), "%s");
    EXPECT_EQ(LogHandle::formatted("%d %s", {"a"}), "%d a");
    EXPECT_EQ(LogHandle::formatted("end %", {"a"}), "end %");
}

TEST(LogFormat, KeepsEveryByteOfItsArguments) {
    const std::string bytes("a\0b", 3);

    EXPECT_EQ(LogHandle::formatted("<%s>", {String(bytes)}).str(), "<" + bytes + ">");
}

}  // namespace
