#include "runtime/Trace.h"

#include <gtest/gtest.h>

#include <locale>
#include <string>
#include <vector>

#include "runtime/String.h"
#include "tests/runtime/World.h"
#include "tests/support/Allocations.h"

namespace {

using Orv::TraceHandle;
using Orv::TraceSite;
using RuntimeTest::Lines;

const Orv::TraceUnit& traceUnit() {
    static const Orv::TraceUnit unit{"TestUnit", TraceHandle::named("Test")};
    return unit;
}

class Sink final : public Orv::TraceSink {
  public:
    struct Line {
        TraceSite site;
        std::string text;
    };
    std::vector<Line> lines;
    void line(const TraceSite& site, const std::string& text) override {
        lines.push_back({site, text});
    }
    Lines texts() const {
        Lines all;
        for (const Line& line : lines) all.push_back(line.text);
        return all;
    }
};

class Trace : public ::testing::Test {
  protected:
    Trace() { handle.sinkIs(&sink); }
    ~Trace() override {
        handle.sinkIs(nullptr);
        handle.levelIs(TraceHandle::off);
        handle.recordLevelIs(TraceHandle::off);
    }
    TraceHandle& handle = TraceHandle::named("Test");
    Sink sink;
};

void handleStage(int key) { TRACE(4, " stage: ", Orv::String("a"), " key: ", key); }
constexpr int lineOfTheBlock = __LINE__ - 1;

TEST_F(Trace, IsOffAtStart) {
    EXPECT_EQ(TraceHandle::named("fresh").level(), TraceHandle::off);
    EXPECT_FALSE(TraceHandle::named("fresh").enabled(0));
    EXPECT_FALSE(TraceHandle::named("fresh").traces(0));
}

TEST_F(Trace, HandlesOfOneNameAreOne) {
    EXPECT_EQ(&TraceHandle::named("Test"), &handle);
    EXPECT_NE(&TraceHandle::named("Other"), &handle);
}

TEST_F(Trace, IsEnabledSomewhereWhileAnyHandleTakesLinesOrRecords) {
    EXPECT_FALSE(TraceHandle::someEnabled());
    TraceHandle& other = TraceHandle::named("Other");

    handle.levelIs(0);
    EXPECT_TRUE(TraceHandle::someEnabled());
    handle.levelIs(9);
    other.recordLevelIs(4);
    handle.levelIs(TraceHandle::off);
    EXPECT_TRUE(TraceHandle::someEnabled());
    other.recordLevelIs(TraceHandle::off);
    EXPECT_FALSE(TraceHandle::someEnabled());

    handle.levelIs(-5);
    EXPECT_FALSE(TraceHandle::someEnabled()) << "below every block";
}

TEST_F(Trace, WritesTheBlocksOfItsLevelAndBelow) {
    handle.levelIs(7);

    TRACE(0, "zero");
    TRACE(7, "seven");
    TRACE(8, "eight");

    EXPECT_EQ(sink.texts(), (Lines{"zero", "seven"}));
}

TEST_F(Trace, ALineBearsItsUnitItsPlaceAndItsHandlersSignature) {
    handle.levelIs(9);

    handleStage(1);

    ASSERT_EQ(sink.lines.size(), 1u);
    const TraceSite& site = sink.lines[0].site;
    EXPECT_STREQ(site.unit, "TestUnit");
    EXPECT_STREQ(site.handler, "handleStage");
    EXPECT_NE(std::string(site.signature).find("handleStage(int)"), std::string::npos)
        << site.signature;
    EXPECT_EQ(site.level, 4);
    EXPECT_EQ(site.line, lineOfTheBlock);
    EXPECT_EQ(sink.lines[0].text, " stage: a key: 1");
}

TEST_F(Trace, ABlockWithoutArgumentsWritesItsSiteAlone) {
    handle.levelIs(9);

    TRACE(8);

    EXPECT_EQ(sink.texts(), (Lines{""}));
}

TEST_F(Trace, ADisabledBlockEvaluatesAndBuildsNothing) {
    int evaluated = 0;
    const auto argument = [&] { return ++evaluated; };
    handle.levelIs(7);
    const std::size_t before = RuntimeTest::allocations();

    for (int i = 0; i < 1000; ++i) TRACE(8, " value: ", argument());

    EXPECT_EQ(RuntimeTest::allocations(), before);
    EXPECT_EQ(evaluated, 0);
    EXPECT_TRUE(sink.lines.empty());

    handle.levelIs(8);
    TRACE(8, " value: ", argument());
    EXPECT_EQ(evaluated, 1);
}

TEST_F(Trace, NumbersAreInTheClassicLocale) {
    class Grouping final : public std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        char do_decimal_point() const override { return ','; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));
    handle.levelIs(9);

    TRACE(1, 1234567, " ", 2.5);

    std::locale::global(before);
    EXPECT_EQ(sink.texts(), (Lines{"1234567 2.5"}));
}

TEST_F(Trace, WithoutASinkGoesToStandardError) {
    handle.sinkIs(nullptr);
    handle.levelIs(9);
    ::testing::internal::CaptureStderr();

    handleStage(1);

    const std::string text = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(text.rfind("TestUnit:", 0), 0u) << text;
    EXPECT_NE(text.find(" handleStage: "), std::string::npos) << text;
    EXPECT_EQ(text.find('\n'), text.size() - 1) << text;
    EXPECT_NE(text.find(" stage: a key: 1\n"), std::string::npos) << text;
}

TEST(TraceFormat, IsUnitLineHandlerSignatureText) {
    const TraceSite site{"Unit", "handleX", "void Sm::handleX(int)", 12, 8};

    EXPECT_EQ(TraceHandle::formatted(site, " key: 1"),
              "Unit:12 handleX: void Sm::handleX(int) key: 1");
}

TEST_F(Trace, TextAndRecordHaveTheirOwnLevels) {
    const std::uint64_t before = Pellum::ring().recorded();
    handle.recordLevelIs(5);
    EXPECT_TRUE(handle.enabled(5));
    EXPECT_FALSE(handle.traces(5));

    TRACE(5, "recorded");
    EXPECT_EQ(Pellum::ring().recorded(), before + 1);
    EXPECT_TRUE(sink.lines.empty());

    handle.levelIs(6);
    TRACE(6, "written");
    EXPECT_EQ(Pellum::ring().recorded(), before + 1);
    EXPECT_EQ(sink.texts(), (Lines{"written"}));

    TRACE(5, "both");
    EXPECT_EQ(Pellum::ring().recorded(), before + 2);
    EXPECT_EQ(sink.texts(), (Lines{"written", "both"}));

    handle.levelIs(TraceHandle::off);
    EXPECT_TRUE(handle.enabled(5));
    handle.recordLevelIs(TraceHandle::off);
    EXPECT_FALSE(handle.enabled(0));
}

TEST_F(Trace, ARecordAllocatesNothing) {
    handle.recordLevelIs(9);
    const std::size_t before = RuntimeTest::allocations();

    for (int i = 0; i < 100; ++i) TRACE(8, " value: ", i);

    EXPECT_EQ(RuntimeTest::allocations(), before);
}

TEST_F(Trace, ABlockRecordsUnderOneDescriptor) {
    handle.recordLevelIs(9);

    for (int i = 0; i < 3; ++i) TRACE(8, i);
    TRACE(8);

    const auto records = Pellum::ring().records();
    ASSERT_GE(records.size(), 4u);
    const auto* const last = &records.back();
    EXPECT_EQ(last[-1].descriptor, last[-2].descriptor);
    EXPECT_EQ(last[-1].descriptor, last[-3].descriptor);
    EXPECT_NE(last[0].descriptor, last[-1].descriptor);
    EXPECT_STREQ(last[0].descriptor->unit, "TestUnit");
    EXPECT_STREQ(last[0].descriptor->handler, "TestBody");
    EXPECT_GT(last[0].descriptor->line, last[-1].descriptor->line);
}

TEST_F(Trace, IsOneStatementAfterAnIf) {
    handle.levelIs(9);
    const bool no = false;

    if (no)
        TRACE(1, "then");
    else
        TRACE(1, "else");

    EXPECT_EQ(sink.texts(), (Lines{"else"}));
}

}  // namespace
