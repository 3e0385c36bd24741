#include "runtime/String.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>

#include "tests/runtime/World.h"
#include "tests/support/Allocations.h"

namespace {

using Orv::concat;
using Orv::Name;
using Orv::String;
using RuntimeTest::ThreadSafePtrs;

TEST(String, TheEmptyStringAllocatesNothing) {
    const std::size_t before = RuntimeTest::allocations();

    const String a;
    const String b("");
    const String c{std::string_view()};
    const String d = concat({"", ""});
    const String e = a + b;
    const std::size_t after = RuntimeTest::allocations();

    EXPECT_EQ(after, before);
    for (const String& s : {a, b, c, d, e}) {
        EXPECT_TRUE(s.empty());
        EXPECT_EQ(s.size(), 0u);
        EXPECT_STREQ(s.c_str(), "");
        EXPECT_EQ(s.hash(), a.hash());
        EXPECT_EQ(s, a);
    }
}

TEST(String, CopiesShareTheTextAndAllocateNothing) {
    const String original("text");
    const std::size_t before = RuntimeTest::allocations();

    const String copy = original;
    String assigned;
    assigned = copy;
    const String moved = std::move(assigned);
    const std::size_t after = RuntimeTest::allocations();

    EXPECT_EQ(after, before);
    EXPECT_EQ(copy.c_str(), original.c_str());
    EXPECT_EQ(moved.c_str(), original.c_str());
    EXPECT_TRUE(assigned.empty());  // NOLINT: moved from on purpose
}

TEST(String, LivesThroughSwitchesOfTheCount) {
    const ThreadSafePtrs off(false);
    String a("text");
    String b = a;
    Orv::threadSafePtrsIs(true);
    const String c = b;
    a = String();
    Orv::threadSafePtrsIs(false);
    b = String();

    EXPECT_EQ(c, "text");
}

TEST(String, AssignmentToItselfKeepsTheText) {
    String s("text");
    const String& same = s;

    s = same;

    EXPECT_EQ(s, "text");
}

TEST(String, HoldsAnyBytesAndEndsWithAZero) {
    const std::string bytes("a\0b\xff", 4);

    const String s(bytes);

    EXPECT_EQ(s.size(), 4u);
    EXPECT_EQ(s.str(), bytes);
    EXPECT_EQ(s.c_str()[4], '\0');
    EXPECT_NE(s, String("a"));
    EXPECT_EQ(s.substr(2), String(std::string_view("b\xff", 2)));
}

TEST(String, EqualTextsAreEqualWhereverTheyLie) {
    const String a("text");
    const String b(std::string("te") + "xt");

    EXPECT_NE(a.c_str(), b.c_str());
    EXPECT_TRUE(a == b);
    EXPECT_TRUE(a == "text");
    EXPECT_FALSE(a != b);
    EXPECT_TRUE(a != String("Text"));
    EXPECT_TRUE(a != String("tex"));
    EXPECT_EQ(a.hash(), b.hash());
}

TEST(String, IsOrderedByUnsignedBytes) {
    EXPECT_LT(String(), String("a"));
    EXPECT_LT(String("a"), String("ab"));
    EXPECT_LT(String("ab"), String("b"));
    EXPECT_LT(String("z"), String("\xc3"));
    EXPECT_GT(String("b"), String("ab"));
    EXPECT_LE(String("b"), String("b"));
    EXPECT_EQ(String("b") <=> String("b"), std::strong_ordering::equal);

    const std::map<String, int> sorted{{"b", 2}, {"a", 1}};
    EXPECT_EQ(sorted.begin()->first, "a");
}

TEST(String, HashIsThe32BitFnv1aOfItsBytes) {
    EXPECT_EQ(String().hash(), 0x811c9dc5u);
    EXPECT_EQ(String("a").hash(), 0xe40c292cu);
    EXPECT_EQ(String("foobar").hash(), 0xbf9cf968u);
}

TEST(String, AHashOfZeroIsReplacedSinceZeroMarksAnUnknownOne) {
    const String zero("\xcc\x24\x31\xc4");  // its FNV-1a is 0

    EXPECT_EQ(zero.hash(), 1u);
    EXPECT_EQ(zero.hash(), 1u);
}

TEST(String, SubstrCutsWhatThereIs) {
    const String s("stage boot");

    EXPECT_EQ(s.substr(6), "boot");
    EXPECT_EQ(s.substr(0, 5), "stage");
    EXPECT_EQ(s.substr(6, 100), "boot");
    EXPECT_EQ(s.substr(2, 0), "");
    EXPECT_EQ(s.substr(10), "");
    EXPECT_EQ(s.substr(11), "");
    EXPECT_EQ(s.substr(1000, 5), "");
    EXPECT_EQ(String().substr(0, 1), "");
}

TEST(String, SubstrOfEverythingSharesTheText) {
    const String s("stage");

    EXPECT_EQ(s.substr(0).c_str(), s.c_str());
    EXPECT_EQ(s.substr(0, 5).c_str(), s.c_str());
    EXPECT_EQ(s.substr(0, 99).c_str(), s.c_str());
}

TEST(String, ConcatenationJoins) {
    EXPECT_EQ(String("a") + String("b"), "ab");
    EXPECT_EQ(String("a") + "b" + std::string("c"), "abc");
    EXPECT_EQ(concat({"stage ", String("boot"), " is", "", " complete"}), "stage boot is complete");
    EXPECT_EQ(concat({}), "");
}

TEST(String, ConcatenationWithNothingSharesTheText) {
    const String s("stage");

    EXPECT_EQ((s + String()).c_str(), s.c_str());
    EXPECT_EQ((String() + s).c_str(), s.c_str());
}

TEST(String, ConcatenationAllocatesOnce) {
    const String a("stage ");
    const String b("boot");
    const std::size_t before = RuntimeTest::allocations();

    const String joined = concat({a, b, " is complete"});

    EXPECT_EQ(RuntimeTest::allocations(), before + 1);
    EXPECT_EQ(joined, "stage boot is complete");
}

TEST(String, AnAllocationThatFailsLeavesTheTargetAsItWas) {
    String s("text");
    bool failed = false;
    {
        const RuntimeTest::FailingAllocation first(1);
        try {
            s = String("another");
        } catch (const std::bad_alloc&) {
            failed = true;
        }
    }
    EXPECT_TRUE(failed);
    EXPECT_EQ(s, "text");
}

TEST(String, IsWrittenToStreams) {
    std::ostringstream out;

    out << String("a") << Name("b") << String(std::string_view("\0c", 2)) << String();

    EXPECT_EQ(out.str(), std::string("ab\0c", 4));
}

TEST(String, ConvertsToAView) {
    const String s("text");
    const std::string_view view = s;

    EXPECT_EQ(view, "text");
    EXPECT_EQ(view.data(), s.c_str());
    EXPECT_TRUE(s == std::string("text"));
    EXPECT_TRUE(s == view);
}

TEST(String, IsAKeyOfStandardMaps) {
    std::unordered_map<String, int> byString{{"a", 1}};
    std::unordered_map<Name, int> byName{{Name("a"), 2}};

    EXPECT_EQ(byString.at(String("a")), 1);
    EXPECT_EQ(byName.at(Name("a")), 2);
}

TEST(Name, ConvertsToAStringAndBackWithoutACopyOfTheText) {
    static_assert(std::is_convertible_v<Name, String>);
    static_assert(std::is_convertible_v<String, Name>);
    static_assert(std::is_nothrow_move_constructible_v<Name>);
    const Name name("disk");

    const String text = name;
    const Name back = text;

    EXPECT_EQ(text.c_str(), name.c_str());
    EXPECT_EQ(back.c_str(), name.c_str());
    EXPECT_EQ(back, name);
    EXPECT_EQ(name, String("disk"));
    EXPECT_EQ(name, "disk");
    EXPECT_EQ(name.hash(), text.hash());
    EXPECT_LT(name, Name("fan"));
}

TEST(Name, TakesOverAStringThatIsGivenUp) {
    String text("disk");
    const char* const bytes = text.c_str();

    const Name name(std::move(text));

    EXPECT_EQ(name.c_str(), bytes);
    EXPECT_EQ(name, "disk");
}

TEST(MixHash, DependsOnTheOrderOfTheFields) {
    const std::uint32_t a = String("a").hash();
    const std::uint32_t b = String("b").hash();

    EXPECT_NE(Orv::mixHash(a, b), Orv::mixHash(b, a));
    EXPECT_NE(Orv::mixHash(a, b), Orv::mixHash(a, a));
    EXPECT_EQ(Orv::mixHash(a, b), Orv::mixHash(a, b));
}

}  // namespace
