#include "host/Json.h"

#include <gtest/gtest.h>

#include <limits>

namespace Host {
namespace {

std::string number(double d) {
    std::string text;
    appendNumber(text, d);
    return text;
}
std::string textOf(std::string_view s) {
    std::string text;
    appendText(text, s);
    return text;
}
std::string written(const Json& json) {
    std::string text;
    appendJson(text, json);
    return text;
}
std::string refusal(std::string_view text) {
    try {
        parseJson(text);
    } catch (const JsonError& e) {
        return e.what();
    }
    return "accepted";
}

TEST(JsonNumber, IsTheShortestThatReadsBack) {
    EXPECT_EQ(number(0.1), "0.1");
    EXPECT_EQ(number(0.1 + 0.2), "0.30000000000000004");
    EXPECT_EQ(number(90.5), "90.5");
    EXPECT_EQ(number(5e-324), "5e-324");
    EXPECT_EQ(number(1.7976931348623157e308), "1.7976931348623157e+308");
}

TEST(JsonNumber, HasAPointOrAnExponent) {
    EXPECT_EQ(number(0), "0.0");
    EXPECT_EQ(number(-0.0), "-0.0");
    EXPECT_EQ(number(5), "5.0");
    EXPECT_EQ(number(-17), "-17.0");
    EXPECT_EQ(number(123456789012345), "123456789012345.0");
}

TEST(JsonNumber, ChangesNotationAtFixedMagnitudes) {
    EXPECT_EQ(number(0.0001), "0.0001");
    EXPECT_EQ(number(0.00012345), "0.00012345");
    EXPECT_EQ(number(0.00001), "1e-05");
    EXPECT_EQ(number(0.000099), "9.9e-05");
    EXPECT_EQ(number(9999999999999998), "9999999999999998.0");
    EXPECT_EQ(number(1e16), "1e+16");
    EXPECT_EQ(number(12345678901234568), "1.2345678901234568e+16");
    EXPECT_EQ(number(1e100), "1e+100");
}

TEST(JsonNumber, WithoutAJsonFormIsAString) {
    EXPECT_EQ(number(std::numeric_limits<double>::infinity()), "\"inf\"");
    EXPECT_EQ(number(-std::numeric_limits<double>::infinity()), "\"-inf\"");
    EXPECT_EQ(number(std::numeric_limits<double>::quiet_NaN()), "\"nan\"");
}

TEST(JsonNumber, IsReadExactly) {
    for (const char* text :
         {"0.1", "8.41", "2.2250738585072011e-308", "9007199254740993", "123456789.123456789",
          "1e-7", "3.14159265358979323846264338327950288"})
        EXPECT_EQ(*parseJson(text).number(), std::strtod(text, nullptr)) << text;
    EXPECT_EQ(number(*parseJson("-0").number()), "-0.0");
    EXPECT_EQ(*parseJson("1e-999").number(), 0.0);
}

TEST(JsonText, KeepsUtf8AndEscapesControlCharacters) {
    EXPECT_EQ(textOf("Größe дом 時"), "\"Größe дом 時\"");
    EXPECT_EQ(textOf("a\"b\\c/d"), R"("a\"b\\c/d")");
    EXPECT_EQ(textOf("\n\r\t\b\f"), R"("\n\r\t\b\f")");
    EXPECT_EQ(textOf(std::string_view("\0\x01\x1f\x7f", 4)), "\"\\u0000\\u0001\\u001f\x7f\"");
}

TEST(JsonText, ReplacesWhatIsNotUtf8) {
    EXPECT_EQ(textOf("a\xffz"), "\"a\xef\xbf\xbdz\"");
    EXPECT_EQ(textOf("\xc3"), "\"\xef\xbf\xbd\"");
    EXPECT_EQ(textOf("\xed\xa0\x80"), "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\"");
}

TEST(Json, IsWrittenAsItWasRead) {
    for (const char* text : {"null", "true", "false", "1.5", R"("")", R"("x\ny")", "[]",
                             "[1.0, [], {}]", "{}", R"({"b": 1.0, "a": {"c": [null, "d"]}})"})
        EXPECT_EQ(written(parseJson(text)), text);
    EXPECT_EQ(written(parseJson(" {\"a\" :[ 1 ,2]}\t")), R"({"a": [1.0, 2.0]})");
    EXPECT_EQ(written(parseJson(R"("\u00fc\ud83d\ude00\/")")), "\"ü😀/\"");
}

TEST(Json, FindsMembersOfObjectsOnly) {
    EXPECT_EQ(*parseJson(R"({"a": 1, "b": 2})").member("b")->number(), 2);
    EXPECT_EQ(parseJson(R"({"a": 1})").member("b"), nullptr);
    EXPECT_EQ(parseJson("[1]").member("a"), nullptr);
}

TEST(Json, RefusesWhatIsNotExactlyOneValue) {
    EXPECT_EQ(refusal(""), "not JSON: it ends too early at column 1");
    EXPECT_EQ(refusal("{\"a\":"), "not JSON: it ends too early at column 6");
    EXPECT_EQ(refusal("{} {}"), "not JSON: something follows the value at column 4");
    EXPECT_EQ(refusal("{\"a\" 1}"), "not JSON: syntax error at column 6");
    EXPECT_EQ(refusal("{'a':1}"), "not JSON: syntax error at column 2");
    EXPECT_EQ(refusal("[1,]"), "not JSON: syntax error at column 4");
    EXPECT_EQ(refusal("01"), "not JSON: something follows the value at column 2");
    EXPECT_EQ(refusal("NaN"), "not JSON: syntax error at column 1");
    EXPECT_EQ(refusal("\"a\tb\""), "not JSON: syntax error at column 3");
    EXPECT_EQ(refusal("// x\n1"), "not JSON: syntax error at column 1");
}

TEST(Json, RefusesWhatTheGrammarAllowsAndNoJournalMeans) {
    EXPECT_EQ(refusal(R"({"a":1,"a":1})"), "the key \"a\" stands twice at column 10");
    EXPECT_EQ(refusal("1e999"), "the number \"1e999\" is beyond what a double holds at column 6");
    EXPECT_EQ(refusal("[-1e400]"),
              "the number \"-1e400\" is beyond what a double holds at column 8");
}

TEST(Json, RefusesBytesThatAreNotUtf8) {
    EXPECT_EQ(refusal("\"a\xff\""), "not UTF-8: the byte 0xff at column 3");
    EXPECT_EQ(refusal("\"\xc0\xaf\""), "not UTF-8: the byte 0xc0 at column 2");
    EXPECT_EQ(refusal("\"\xed\xa0\x80\""), "not UTF-8: the byte 0xed at column 2");
    EXPECT_NE(refusal(R"("\ud800")"), "accepted");
    EXPECT_NE(refusal(R"("\udc00\ud800")"), "accepted");
}

TEST(Json, RefusesObjectsLargerThanAnyJournalHas) {
    std::string members;
    for (int i = 0; i < 64; ++i) members += (i == 0 ? "\"" : ",\"") + std::to_string(i) + "\":0";

    EXPECT_EQ(refusal("{" + members + "}"), "accepted");
    EXPECT_NE(refusal("{" + members + ",\"x\":0}"), "accepted");
}

TEST(Json, RefusesDeepNesting) {
    EXPECT_EQ(refusal(std::string(20, '[') + std::string(20, ']')), "accepted");
    EXPECT_NE(refusal(std::string(100000, '[')), "accepted");
    EXPECT_NE(refusal(std::string(64, '[') + std::string(64, ']')), "accepted");
}

}  // namespace
}  // namespace Host
