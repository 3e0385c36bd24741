#include "runtime/Environment.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "runtime/Halbe.h"
#include "runtime/LogHandle.h"
#include "tests/runtime/Entities.h"

namespace {

using Orv::Environment;
using Orv::String;

// What the library does for a host that replaces nothing.

TEST(DefaultEnvironment, AllowsEveryMessageAndWritesItToStandardError) {
    Environment environment;
    const Orv::LogHandle message("TEST_MESSAGE", 4, "%s", "", Orv::NoActionRequired, 0, 1, 0);
    EXPECT_TRUE(environment.okToLog(message));

    ::testing::internal::CaptureStderr();
    environment.operatorMessage(message, "text");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "TEST_MESSAGE: text\n");
}

TEST(DefaultEnvironment, WritesExceptionsOfNotificationsToStandardError) {
    const auto thing = Orv::make<RuntimeTest::Thing>("thing");
    const RuntimeTest::Listener listener(thing, [] { throw std::runtime_error("why"); });

    ::testing::internal::CaptureStderr();
    thing->sizeIs(1);

    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "exception in a notification: why\n");
}

TEST(DefaultEnvironment, PrintsLinesToStandardOutputAtOnce) {
    Environment environment;

    ::testing::internal::CaptureStdout();
    environment.print("one line");
    environment.print(String(std::string("a\0b", 3)));
    environment.print("");

    EXPECT_EQ(::testing::internal::GetCapturedStdout(), std::string("one line\na\0b\n\n", 14));
}

TEST(DefaultEnvironment, MakesAPlainWatchdogRecord) {
    Environment environment;

    const auto record = environment.halbeInfo("name", 3, true);

    ASSERT_TRUE(record);
    EXPECT_EQ(record->name(), "name");
    EXPECT_EQ(record->slot(), 3u);
    EXPECT_TRUE(record->flag());
}

}  // namespace
