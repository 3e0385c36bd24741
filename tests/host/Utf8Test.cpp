#include "host/Utf8.h"

#include <gtest/gtest.h>

namespace Host {
namespace {

TEST(Utf8, SequencesHaveTheirLength) {
    EXPECT_EQ(utf8Length("a", 0), 1u);
    EXPECT_EQ(utf8Length("\u00fc", 0), 2u);
    EXPECT_EQ(utf8Length("\u20ac", 0), 3u);
    EXPECT_EQ(utf8Length("\U0001f600", 0), 4u);
    EXPECT_EQ(utf8Length("ab", 2), 0u);
}

TEST(Utf8, IllFormedSequencesHaveNone) {
    for (const char* text :
         {"\x80", "\xc3", "\xc3(", "\xc0\xaf", "\xc1\xbf", "\xe0\x80\x80", "\xe2\x82",
          "\xed\xa0\x80", "\xf0\x80\x80\x80", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xff"})
        EXPECT_EQ(utf8Length(text, 0), 0u) << printable(text);
}

TEST(Utf8, FaultIsTheFirstIllFormedByte) {
    EXPECT_EQ(utf8Fault("abc \u20ac"), std::string_view::npos);
    EXPECT_EQ(utf8Fault("\u20ac\xffz\xff"), 3u);
}

TEST(Utf8, ColumnsAreCodePoints) { EXPECT_EQ(utf8Columns("Gr\u00f6\u00dfe"), 5u); }

TEST(Printable, LeavesPlainTextAlone) {
    EXPECT_EQ(printable("stage \u00fcber 'all' \"x\" \\"), "stage \u00fcber 'all' \"x\" \\");
}

TEST(Printable, DisarmsWhatWouldDisturbATerminal) {
    EXPECT_EQ(printable("a\nb\tc"), "a\\nb\\tc");
    EXPECT_EQ(printable("\033[31mred"), "\\u001b[31mred");
    EXPECT_EQ(printable("\u202eevil"), "\\u202eevil");
    EXPECT_EQ(printable("\u009b2J"), "\\u009b2J");
    EXPECT_EQ(printable("\xff\x7f"), "\\xff\\u007f");
}

TEST(InQuotes, CutsLongTextsBetweenCharacters) {
    EXPECT_EQ(inQuotes("a"), "\"a\"");
    const std::string cut = inQuotes(std::string(300, 'x'));
    EXPECT_EQ(cut.size(), 205u);
    EXPECT_TRUE(cut.ends_with("xxx...\""));

    // A character of three bytes that only begins before the 200th.
    std::string text(199, 'x');
    text.append("\u20ac\u20ac");
    const std::string between = inQuotes(text);
    EXPECT_EQ(between.size(), 204u);
    EXPECT_TRUE(between.ends_with("xxx...\""));
}

}  // namespace
}  // namespace Host
