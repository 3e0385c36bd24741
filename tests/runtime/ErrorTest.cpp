#include "runtime/Error.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <type_traits>

#include "runtime/ActivityManager.h"
#include "runtime/Environment.h"

namespace {

TEST(NameInUseError, NamesTheParameterWithOneUnderscoreTheNewAndTheCurrentValue) {
    EXPECT_STREQ(Orv::NameInUseError("stageClassDir", "/a", "/b").what(),
                 "Reinstantiating the pointer interface where constructor parameter attribute "
                 "_stageClassDir has a different value of /a than the current value of /b not "
                 "allowed");
}

TEST(NullParameterError, EndsWithADoubleQuote) {
    EXPECT_STREQ(
        Orv::NullParameterError("_stageStatus", "Stage::ConfigSm::stageStatus").what(),
        "null _stageStatus parameter to mutator for Stage::ConfigSm::stageStatus not allowed\"");
}

TEST(RangeError, HasItsText) {
    EXPECT_STREQ(Orv::RangeError("null ValidPtr").what(), "null ValidPtr");
}

TEST(Error, CatchesEveryErrorOfTheFramework) {
    static_assert(std::is_base_of_v<Orv::Error, Orv::RangeError>);
    static_assert(std::is_base_of_v<Orv::Error, Orv::NameInUseError>);
    static_assert(std::is_base_of_v<Orv::Error, Orv::NullParameterError>);
    static_assert(std::is_base_of_v<Orv::Error, Orv::ReflectionError>);
    static_assert(std::is_base_of_v<std::runtime_error, Orv::Error>);
    EXPECT_THROW(throw Orv::ReflectionError("x"), Orv::Error);
}

TEST(Assertion, ThatHoldsDoesNothing) { Orv::assertThat(true, "true"); }

// In every build: these tests are part of the optimized one too.
TEST(AssertionDeathTest, AbortsWithTheExpressionOnStandardError) {
    EXPECT_EXIT(Orv::assertThat(false, "agentName() == agent"), ::testing::KilledBySignal(SIGABRT),
                "^Assertion failed: agentName\\(\\) == agent\n$");
}

TEST(AssertionDeathTest, FirstLetsTheEnvironmentWriteOutWhatItHolds) {
    class Holding final : public Orv::Environment {
      public:
        void assertionFailed(const char* expression) noexcept override {
            std::fprintf(stderr, "held back until %s; ", expression);
        }
    };
    Orv::VirtualTime time;
    Holding environment;
    Orv::ActivityManager manager(time, environment);
    const Orv::ActivityScope scope(manager);

    EXPECT_EXIT(Orv::assertThat(false, "x"), ::testing::KilledBySignal(SIGABRT),
                "held back until x; Assertion failed: x\n");
}

TEST(AssertionDeathTest, FlushesStandardOutput) {
    EXPECT_EXIT(
        {
            // What was printed is in a full-sized buffer that abort would drop.
            std::setvbuf(stdout, nullptr, _IOFBF, 1 << 16);
            dup2(2, 1);
            std::printf("printed; ");
            Orv::assertThat(false, "x");
        },
        ::testing::KilledBySignal(SIGABRT), "printed; Assertion failed: x");
}

}  // namespace
