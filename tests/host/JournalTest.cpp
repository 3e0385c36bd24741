#include "host/Journal.h"

#include <gtest/gtest.h>

#include <sstream>

namespace Host {
namespace {

Input parsed(std::string_view line) { return parseInput(line, 0); }

TEST(Input, OfEachKindIsRead) {
    EXPECT_EQ(
        parsed(R"({"at":1.5,"op":"create","path":"/stage/boot","type":"Orv::Dir"})"),
        (Input{.at = 1.5, .op = Input::Op::create, .path = "/stage/boot", .type = "Orv::Dir"}));
    EXPECT_EQ(parsed(R"({"op":"delete","path":"/stage/boot"})"),
              (Input{.op = Input::Op::del, .path = "/stage/boot"}));
    EXPECT_EQ(parsed(R"({"op":"set","path":"/p","attr":"a","value":[1]})"),
              (Input{.op = Input::Op::set,
                     .path = "/p",
                     .attr = "a",
                     .value = Json(Json::Array{Json(1.0)})}));
    EXPECT_EQ(
        parsed(R"({"op":"set","path":"/p","attr":"a","key":"k","value":null})"),
        (Input{.op = Input::Op::set, .path = "/p", .attr = "a", .key = "k", .value = Json()}));
    EXPECT_EQ(parsed(R"({"op":"set","path":"/p","attr":"a","key":"k"})"),
              (Input{.op = Input::Op::set, .path = "/p", .attr = "a", .key = "k"}));
    EXPECT_EQ(parsed(R"({"op":"unset","path":"/p","attr":"a","key":"k"})"),
              (Input{.op = Input::Op::unset, .path = "/p", .attr = "a", .key = "k"}));
    EXPECT_EQ(parsed(R"({"op":"clear","path":"/p","attr":"a"})"),
              (Input{.op = Input::Op::clear, .path = "/p", .attr = "a"}));
    EXPECT_EQ(parsed(R"({"op":"settle"})"), (Input{.op = Input::Op::settle}));
    EXPECT_EQ(parsed(R"({"at":9,"op":"end"})"), (Input{.at = 9, .op = Input::Op::end}));
}

TEST(Input, WithoutATimeHasTheOneBefore) {
    EXPECT_EQ(parseInput(R"({"op":"settle"})", 7.25).at, 7.25);
    EXPECT_EQ(parseInput(R"({"at":7.25,"op":"settle"})", 7.25).at, 7.25);
}

TEST(Input, IsWrittenAsItIsRead) {
    for (
        const char* line :
        {R"({"at": 1.5, "op": "create", "path": "/stage/boot", "type": "Orv::Dir"})",
         R"({"at": 0.0, "op": "delete", "path": "/stage/\"x\""})",
         R"({"at": 0.0, "op": "set", "path": "/p", "attr": "a", "key": {"agent": "x", "stage": "y", "instance": "z"}, "value": true})",
         R"({"at": 0.0, "op": "set", "path": "/p", "attr": "a", "key": "k"})",
         R"({"at": 0.0, "op": "set", "path": "/p", "attr": "a", "value": null})",
         R"({"at": 0.0, "op": "unset", "path": "/p", "attr": "a", "key": "k"})",
         R"({"at": 0.0, "op": "clear", "path": "/p", "attr": "a"})",
         R"({"at": 1e+16, "op": "settle"})", R"({"at": 3.25, "op": "end"})"})
        EXPECT_EQ(inputLine(parsed(line)), line);
}

TEST(JournalReader, PassesOverWhatIsNoInput) {
    std::istringstream in("\n# a comment \xff\n \t \r\n{\"op\":\"settle\"}\r\n\n{\"op\":\"end\"}");
    JournalReader reader(in);

    EXPECT_EQ(reader.next()->op, Input::Op::settle);
    EXPECT_EQ(reader.line(), 4u);
    EXPECT_EQ(reader.next()->op, Input::Op::end);
    EXPECT_EQ(reader.line(), 6u);
    EXPECT_FALSE(reader.next());
    EXPECT_FALSE(reader.next());
}

TEST(JournalReader, CarriesTheTimeFromLineToLine) {
    std::istringstream in(
        "{\"at\":2,\"op\":\"settle\"}\n{\"op\":\"settle\"}\n{\"at\":1,\"op\":\"end\"}\n");
    JournalReader reader(in);

    EXPECT_EQ(reader.next()->at, 2);
    EXPECT_EQ(reader.next()->at, 2);
    EXPECT_THROW(reader.next(), JournalError);
    EXPECT_EQ(reader.line(), 3u);
}

TEST(JournalReader, TakesLongLinesButNotEndlessOnes) {
    for (const std::size_t size : {65534u, 65535u, 65536u, 65537u, 131070u, 200000u}) {
        const std::string line = "{\"op\":\"settle\"}" + std::string(size - 15, ' ');
        for (const char* end : {"\n{\"op\":\"end\"}\n", "\n{\"op\":\"end\"}"}) {
            std::istringstream in(line + end);
            JournalReader reader(in);
            EXPECT_EQ(reader.next()->op, Input::Op::settle) << size;
            EXPECT_EQ(reader.next()->op, Input::Op::end) << size;
            EXPECT_EQ(reader.line(), 2u);
            EXPECT_FALSE(reader.next());
        }
        std::istringstream last(line);
        JournalReader reader(last);
        EXPECT_EQ(reader.next()->op, Input::Op::settle) << size;
        EXPECT_FALSE(reader.next()) << size;
    }
    std::istringstream endless("\n" + std::string(JournalReader::longestLine + 100000, 'x'));
    JournalReader reader(endless);
    try {
        reader.next();
        ADD_FAILURE() << "accepted";
    } catch (const JournalError& e) {
        EXPECT_EQ(e.line(), 2u);
        EXPECT_STREQ(e.what(), "the line is longer than 16777216 bytes");
    }
}

}  // namespace
}  // namespace Host
