#include "host/plan/Yaml.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace Host {
namespace {

struct Read {
    std::optional<YamlNode> root;
    std::vector<Diagnostic> errors;
};

Read read(std::string_view text) {
    Read made;
    Findings findings("f.yaml", made.errors);
    made.root = readYaml(text, findings);
    return made;
}

// "LINE:COLUMN: TEXT" of the only error.
std::string error(std::string_view text) {
    const Read made = read(text);
    if (made.errors.size() != 1) return std::to_string(made.errors.size()) + " errors";
    const Diagnostic& only = made.errors[0];
    return std::to_string(only.place.line) + ":" + std::to_string(only.place.column) + ": " +
           only.text;
}

// A node in one line, with the places of everything.
std::string shown(const YamlNode& node) {
    const std::string place =
        "@" + std::to_string(node.place.line) + ":" + std::to_string(node.place.column);
    std::string text;
    switch (node.kind) {
        case YamlNode::Kind::scalar:
            return (node.quoted ? "'" + node.text + "'" : node.text) + place;
        case YamlNode::Kind::refused: return "refused" + place;
        case YamlNode::Kind::list:
            for (const YamlNode& item : node.items) text += " " + shown(item);
            return "[" + text + " ]" + place;
        case YamlNode::Kind::mapping: break;
    }
    for (const YamlMember& member : node.members)
        text += " " + member.key + "@" + std::to_string(member.place.line) + ":" +
                std::to_string(member.place.column) + "=" + shown(member.value);
    return "{" + text + " }" + place;
}

std::string shown(std::string_view text) {
    const Read made = read(text);
    return made.root && made.errors.empty() ? shown(*made.root) : "refused";
}

TEST(Yaml, EveryNodeHasItsPlace) {
    EXPECT_EQ(shown("a: 1\nb:\n  - x\n  - 'y z'\nc: {d: e}\n"),
              "{ a@1:1=1@1:4 b@2:1=[ x@3:5 'y z'@4:5 ]@3:3 c@5:1={ d@5:5=e@5:8 }@5:4 }@1:1");
}

TEST(Yaml, ValueThatIsNotWrittenStandsAtItsKey) {
    EXPECT_EQ(shown("a:\nb: ~\n"), "{ a@1:1=@1:1 b@2:1=~@2:4 }@1:1");
}

TEST(Yaml, ColumnsCountCharacters) {
    EXPECT_EQ(shown("\u00fc\u6f22: [\U0001f680, x]"),
              "{ \u00fc\u6f22@1:1=[ \U0001f680@1:6 x@1:9 "
              "]@1:5 }@1:1");
}

TEST(Yaml, OnlyLineFeedsEndALineOfAnEditor) {
    EXPECT_EQ(shown("a: 1\r\nb: 2\r\n"), "{ a@1:1=1@1:4 b@2:1=2@2:4 }@1:1");
    EXPECT_EQ(shown("{a: \"\u2028\", b: 2}\n"), "{ a@1:2='\u2028'@1:5 b@1:10=2@1:13 }@1:1");
}

TEST(Yaml, ByteOrderMarkIsNoCharacter) {
    EXPECT_EQ(shown("\xef\xbb\xbf"
                    "a: 1"),
              "{ a@1:1=1@1:4 }@1:1");
}

TEST(Yaml, TabsSeparate) { EXPECT_EQ(shown("a:\t1\t# one\n"), "{ a@1:1=1@1:4 }@1:1"); }

TEST(Yaml, QuotesAndBlocksMakeTexts) {
    const Read made = read("[1, \"1\", '1', true, 'true', ~, \"\"]");
    std::string kinds;
    for (const YamlNode& item : made.root->items)
        kinds += "nbit"[static_cast<std::size_t>(item.scalar())];
    EXPECT_EQ(kinds, "ittbtnt");
    const Read block = read("a: |\n  12\nb: >-\n  12\n");
    EXPECT_TRUE(block.root->member("a")->value.is(YamlNode::Scalar::text));
    EXPECT_EQ(block.root->member("a")->value.text, "12\n");
    EXPECT_TRUE(block.root->member("b")->value.is(YamlNode::Scalar::text));
}

TEST(Yaml, PlainScalarsAreWhatTheCoreRulesSay) {
    const auto kind = [](std::string text) {
        YamlNode node;
        node.kind = YamlNode::Kind::scalar;
        node.text = std::move(text);
        return node.scalar();
    };
    for (const char* text : {"", "~", "null", "Null", "NULL"})
        EXPECT_EQ(kind(text), YamlNode::Scalar::null) << text;
    for (const char* text : {"true", "True", "TRUE", "false", "False", "FALSE"})
        EXPECT_EQ(kind(text), YamlNode::Scalar::boolean) << text;
    for (const char* text : {"0", "-1", "+1", "010", "1.", "1.5", ".5", "1e3", "1E-3", "1.5e+3",
                             "0x1F", "0o17", ".inf", "-.Inf", "+.INF", ".nan", ".NaN"})
        EXPECT_EQ(kind(text), YamlNode::Scalar::number) << text;
    for (const char* text :
         {"yes", "on", "no",  "tRUE", "nULL", "1s",    "-",     "+",    ".",   "e3",    ".e3", "1e",
          "1e+", "0x", "0xg", "0o8",  "-0x1", "1.2.3", "1_000", "1:30", "inf", "-.nan", "1 "})
        EXPECT_EQ(kind(text), YamlNode::Scalar::text) << text;
}

TEST(Yaml, JsonIsRead) {
    EXPECT_EQ(shown("{\"a\":1,\n\t\"b\\/c\" : [\"\\u00fc\", null]}"),
              "{ a@1:2=1@1:6 b/c@2:2=[ '\u00fc'@2:12 null@2:22 ]@2:11 }@1:1");
}

TEST(Yaml, SurrogatesOfJsonAreOneCharacterAndKeepThePlacesBehindThem) {
    EXPECT_EQ(shown("[\"\\ud83d\\ude00\", \"\\uD83D\\uDE80x\", 1]"),
              "[ '\U0001f600'@1:2 '\U0001f680x'@1:18 1@1:35 ]@1:1");
    // A backslash before the "u" that is itself escaped.
    EXPECT_EQ(shown("[\"\\\\ud83d\\\\ude00\"]"), "[ '\\ud83d\\ude00'@1:2 ]@1:1");
    EXPECT_EQ(error("[\"ab\\ud83d\"]"), "1:5: this escape stands for no character");
    EXPECT_EQ(error("[\"ab\\ude00\\ud83d\"]"), "1:5: this escape stands for no character");
}

TEST(Yaml, JsonThatEndsWithinAnEscapeIsRefused) {
    const std::string text = "[\"\\ud83d\\ude00\"]";
    for (std::size_t length = 0; length < text.size(); ++length)
        EXPECT_EQ(read(text.substr(0, length)).errors.size(), 1u) << length;
}

TEST(Yaml, WhatIsNotUtf8IsRefused) {
    EXPECT_EQ(error("a: \u00fc\xff"), "1:5: the byte \\xff is not UTF-8; save the file as UTF-8");
    EXPECT_EQ(error("a: 1\nb: \xc3"), "2:4: the byte \\xc3 is not UTF-8; save the file as UTF-8");
    EXPECT_EQ(error("\xef\xbb\xbf\xed\xa0\x80"),
              "1:1: the byte \\xed is not UTF-8; save the file as UTF-8");
    EXPECT_EQ(error(std::string_view("\xff\xfe"
                                     "a\0",
                                     4)),
              "1:1: the file is UTF-16; save it as UTF-8");
}

TEST(Yaml, ControlCharactersAreRefusedWhereTheyStand) {
    EXPECT_EQ(error(std::string_view("a: \u00fc\0", 6)),
              "1:5: the control character U+0000 cannot stand here; no text of a plan can hold it; "
              "leave it out");
    EXPECT_EQ(error("a: 1\nb: \033[31m"),
              "2:4: the control character U+001B cannot stand here; in double quotes, write \\x1B "
              "for it");
    EXPECT_TRUE(read("a: 1\nb: \"\\x1B[31m\"").root);
    EXPECT_EQ(
        error("a: \xef\xbf\xbe"),
        "1:4: the control character U+FFFE cannot stand here; in double quotes, write \\uFFFE "
        "for it");
    EXPECT_TRUE(read("a: \"\\uFFFE\"").root);
}

TEST(Yaml, NothingAtAllIsAnError) {
    for (const char* text : {"", " ", "\n\n", "# only a comment\n"})
        EXPECT_EQ(error(text), "1:1: the file is empty; a plan begins with \"version: 1\"") << text;
}

TEST(Yaml, BrokenSyntaxIsOneErrorAndNoDocument) {
    const Read made = read("a: 1\nb: [\nc: d: e\n");
    EXPECT_FALSE(made.root);
    EXPECT_EQ(made.errors.size(), 1u);
    EXPECT_EQ(made.errors[0].rule, "syntax");
}

TEST(Yaml, SixtyFourLevelsAreTakenAndMoreAreNot) {
    EXPECT_TRUE(read(std::string(64, '[') + std::string(64, ']')).root);
    EXPECT_EQ(error(std::string(65, '[') + std::string(65, ']')),
              "1:65: this is more than 64 levels deep, which no plan is");
    EXPECT_EQ(error(std::string(1'000'000, '[')),
              "1:65: this is more than 64 levels deep, which no plan is");
}

TEST(Yaml, WhatIsNotOursIsReportedAndTheRestIsRead) {
    const Read made = read("a: &x 1\nb: *x\nc: !t 2\n<<: {d: 1}\n[e]: 1\na: 3\nf: 4\n");
    EXPECT_EQ(made.errors.size(), 6u);
    EXPECT_EQ(shown(*made.root),
              "{ a@1:1=1@1:4 b@2:1=refused@2:4 c@3:1=refused@3:4 f@7:1=4@7:4 "
              "}@1:1");
}

TEST(Yaml, KeyThatStandsTwiceNamesWhereItStandsFirst) {
    const Read made = read("a: 1\nb: 2\na: 3\n");
    EXPECT_EQ(made.errors.at(0).place, (Place{3, 1}));
    EXPECT_EQ(made.errors.at(0).related.at(0).place, (Place{1, 1}));
}

TEST(Yaml, ErrorsWithoutEndAreCutOff) {
    std::string text;
    for (int i = 0; i < 5000; ++i) text += "- *x\n";
    const Read made = read(text);
    EXPECT_EQ(made.errors.size(), 1000u);
    EXPECT_EQ(made.errors.back().place, (Place{1000, 3}));
    ASSERT_EQ(made.errors.back().related.size(), 1u);
    EXPECT_EQ(made.errors.back().related[0].place, (Place{1001, 3}));
    EXPECT_EQ(made.errors.back().related[0].text,
              "there are more than 1000 errors; from here on, they are not told");
    EXPECT_EQ(read(text.substr(0, 5000)).errors.back().related.size(), 0u);
}

TEST(Yaml, NodesAreDescribed) {
    const Read made = read("[~, 12, true, x, '', [], {}, *x]");
    std::string text;
    for (const YamlNode& item : made.root->items) text += describe(item) + "; ";
    EXPECT_EQ(
        text,
        "nothing; the number 12; true; the text \"x\"; an empty text; a list; a mapping; what "
        "is not taken; ");
}

}  // namespace
}  // namespace Host
