// Every way in which a line can be wrong, and what the person who wrote it is told.

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <ostream>
#include <sstream>

#include "host/Journal.h"
#include "host/Replay.h"
#include "tests/host/Journals.h"

namespace Host {
namespace {

struct Row {
    const char* line;
    const char* message;
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.line; }

class MalformedLine : public testing::TestWithParam<Row> {};

// The line stands in a journal that is all right up to it, at the time 5.
TEST_P(MalformedLine, EndsTheReplayWithItsNumberAndARemedy) {
    const Lines before = bootClass() + agent("disk", "mount", 5) + enable("main") +
                         report(5, "disk", "mount", "main");

    const Lines after = replayed(before + GetParam().line + report(6, "disk", "mount", "other"));

    ASSERT_FALSE(after.empty());
    EXPECT_EQ(after.back(), fmt::format("{}: {}", before.size() + 1, GetParam().message));
    // What was applied before stays observed, and nothing of it is lost.
    Lines observed = after;
    observed.pop_back();
    Lines expected = replayed(before);
    expected.resize(observed.size());  // what fires after the last line is missing
    EXPECT_EQ(observed, expected);
    EXPECT_GE(observed.size(), 14u);
}

constexpr Row notJson[] = {
    {"x", "not JSON: syntax error at column 1"},
    {"{", "not JSON: it ends too early at column 2"},
    {"  {\"op\":\"settle\"", "not JSON: it ends too early at column 17"},
    {"{\"op\":\"settle\"}}", "not JSON: something follows the value at column 16"},
    {"{\"op\":\"settle\"} {\"op\":\"end\"}", "not JSON: something follows the value at column 17"},
    {"{op:\"settle\"}", "not JSON: syntax error at column 2"},
    {"{'op':'settle'}", "not JSON: syntax error at column 2"},
    {"{\"op\":\"settle\",}", "not JSON: syntax error at column 16"},
    {"{\"op\":\"set\ttle\"}", "not JSON: syntax error at column 11"},
    {"{\"at\":01,\"op\":\"settle\"}", "not JSON: syntax error at column 8"},
    {"{\"at\":NaN,\"op\":\"settle\"}", "not JSON: syntax error at column 7"},
    {"{\"at\":Infinity,\"op\":\"settle\"}", "not JSON: syntax error at column 7"},
    {"{\"at\":1e999,\"op\":\"settle\"}",
     "the number \"1e999\" is beyond what a double holds at column 12"},
    {"{\"op\":\"\xff\"}", "not UTF-8: the byte 0xff at column 8"},
    {"{\"op\":\"\xc0\xaf\"}", "not UTF-8: the byte 0xc0 at column 8"},
    {"\xef\xbb\xbf{\"op\":\"settle\"}", "not JSON: syntax error at column 1"},
    {"{\"op\":\"\\ud800\"}", "not JSON: syntax error at column 14"},
    {"{\"op\":\"settle\",\"op\":\"settle\"}", "the key \"op\" stands twice at column 19"},
    {"[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[", "not JSON: too deep at column 33"},
    {" # not the first character", "not JSON: syntax error at column 2"},
};
INSTANTIATE_TEST_SUITE_P(NotJson, MalformedLine, testing::ValuesIn(notJson));

constexpr Row notAnInput[] = {
    {"[]", "not an object; a line is one JSON object, {\"at\": ..., \"op\": ...}"},
    {"null", "not an object; a line is one JSON object, {\"at\": ..., \"op\": ...}"},
    {"3", "not an object; a line is one JSON object, {\"at\": ..., \"op\": ...}"},
    {"{}", "the line needs \"op\""},
    {R"({"at":5})", "the line needs \"op\""},
    {R"({"op":1})", "\"op\" must be a string"},
    {R"({"op":"crate"})", "no op \"crate\"; did you mean \"create\"?"},
    {R"({"op":"SET"})", "no op \"SET\"; did you mean \"set\"?"},
    {R"({"op":""})", "no op \"\"; there are create, delete, set, unset, clear, settle, end"},
    {R"({"op":"a\nb\u001b[31m"})",
     "no op \"a\\nb\\u001b[31m\"; there are create, delete, set, unset, clear, settle, end"},
    {R"({"at":"5","op":"settle"})", "\"at\" must be a number of seconds"},
    {R"({"at":null,"op":"settle"})", "\"at\" must be a number of seconds"},
    {R"({"at":"inf","op":"end"})", "\"at\" must be a number of seconds"},
    {R"({"at":4.75,"op":"settle"})",
     "\"at\" goes back from 5.0 to 4.75; lines stand in the order of their time"},
    {R"({"at":-1,"op":"settle"})",
     "\"at\" goes back from 5.0 to -1.0; lines stand in the order of their time"},
    {R"({"op":"create","type":"Orv::Dir"})", "\"create\" needs \"path\""},
    {R"({"op":"create","path":"/stage/x"})", "\"create\" needs \"type\""},
    {R"({"op":"create","path":7,"type":"Orv::Dir"})", "\"path\" must be a string"},
    {R"({"op":"create","path":"/stage/x","type":null})", "\"type\" must be a string"},
    {R"({"op":"delete"})", "\"delete\" needs \"path\""},
    {R"({"op":"set","path":"/global"})", "\"set\" needs \"attr\""},
    {R"({"op":"set","path":"/global","attr":[]})", "\"attr\" must be a string"},
    {R"({"op":"set","path":"/fatalerror","attr":"rebootReason"})", "\"set\" needs \"value\""},
    {R"({"op":"unset","path":"/enable/boot","attr":"enabled"})", "\"unset\" needs \"key\""},
    {R"({"op":"clear","path":"/enable/boot"})", "\"clear\" needs \"attr\""},
    {R"({"op":"settle","path":"/stage"})", "\"settle\" has no field \"path\"; it takes at"},
    {R"({"op":"end","why":1})", "\"end\" has no field \"why\"; it takes at"},
    {R"({"op":"delete","path":"/stage/x","type":"Orv::Dir"})",
     "\"delete\" has no field \"type\"; it takes at, path"},
    {R"({"op":"create","path":"/stage/x","type":"Orv::Dir","value":1})",
     "\"create\" has no field \"value\"; it takes at, path, type"},
    {R"({"op":"clear","path":"/enable/boot","attr":"enabled","key":"main"})",
     "\"clear\" has no field \"key\"; it takes at, path, attr"},
    {R"({"op":"unset","path":"/enable/boot","attr":"enabled","key":"main","value":true})",
     "\"unset\" has no field \"value\"; it takes at, path, attr, key"},
    {R"({"op":"set","path":"/fatalerror","attr":"rebootReason","value":"","Value":""})",
     "\"set\" has no field \"Value\"; it takes at, path, attr, key, value"},
};
INSTANTIATE_TEST_SUITE_P(NotAnInput, MalformedLine, testing::ValuesIn(notAnInput));

constexpr Row wrongPlace[] = {
    {R"({"op":"set","path":"","attr":"a","value":1})", "the path \"\" must begin with '/'"},
    {R"({"op":"set","path":"stage/boot","attr":"a","value":1})",
     "the path \"stage/boot\" must begin with '/'"},
    {R"({"op":"set","path":"/a~b","attr":"a","value":1})",
     "the path \"/a~b\" has a '~' by itself; '~' is written \"~0\", and '/' in a name \"~1\""},
    {R"({"op":"set","path":"/enabel/boot","attr":"enabled","key":"x","value":true})",
     "no \"/enabel/boot\" in the tree: the tree has no entry \"enabel\"; did you mean \"enable\"?"},
    {R"({"op":"set","path":"/enable/warm","attr":"enabled","key":"x","value":true})",
     "no \"/enable/warm\" in the tree: \"/enable\" has no entry \"warm\"; create it first"},
    {R"({"op":"set","path":"/input/boot/disk/event/mont","attr":"timeout","value":1})",
     "no \"/input/boot/disk/event/mont\" in the tree: the event of \"/input/boot/disk\" has no "
     "member "
     "\"mont\"; set it first"},
    {R"({"op":"set","path":"/input/boot/disk/evnt/mount","attr":"timeout","value":1})",
     "no \"/input/boot/disk/evnt/mount\" in the tree: \"/input/boot/disk\" is a "
     "Stage::AgentConfig, and "
     "below it stand the members of its event"},
    {R"({"op":"set","path":"/enable/boot/x","attr":"enabled","key":"x","value":true})",
     "no \"/enable/boot/x\" in the tree: \"/enable/boot\" is a Stage::EnabledConfig, and nothing "
     "stands "
     "below it"},
    {R"({"op":"unset","path":"/enable/warm","attr":"enabled","key":"x"})",
     "no \"/enable/warm\" in the tree: \"/enable\" has no entry \"warm\"; create it first"},
    {R"({"op":"clear","path":"/enable/warm","attr":"enabled"})",
     "no \"/enable/warm\" in the tree: \"/enable\" has no entry \"warm\"; create it first"},
    {R"({"op":"set","path":"/sm/stageMgr/boot/agentStatusLocal","attr":"complete","key":{"agent":"a","stage":"b","instance":"c"},"value":true})",
     "\"/sm/stageMgr/boot/agentStatusLocal\" is the manager's own; what stands at and below "
     "\"/sm\" is "
     "read-only"},
    {R"({"op":"create","path":"/sm/x","type":"Orv::Dir"})",
     "\"/sm/x\" is the manager's own; what stands at and below \"/sm\" is read-only"},
    {R"({"op":"delete","path":"/sm"})",
     "\"/sm\" is the manager's own; what stands at and below \"/sm\" is read-only"},
    {R"({"op":"create","path":"/stage/warm/config","type":"Orv::Dir"})",
     "no \"/stage/warm\" in the tree: \"/stage\" has no entry \"warm\"; create it first"},
    {R"({"op":"create","path":"/input/boot/disk/event","type":"Orv::Dir"})",
     "\"/input/boot/disk\" is a Stage::AgentConfig, not a directory; its members are made by "
     "\"set\" "
     "and removed by \"unset\""},
    {R"({"op":"delete","path":"/input/boot/disk/event/mount"})",
     "\"/input/boot/disk\" is a Stage::AgentConfig, not a directory; its members are made by "
     "\"set\" "
     "and removed by \"unset\""},
    {R"({"op":"create","path":"/enable/boot","type":"Orv::Dir"})",
     "\"/enable/boot\" is a Stage::EnabledConfig already; delete it first"},
    {R"({"op":"create","path":"/stage/boot","type":"Stage::Config"})",
     "\"/stage/boot\" is a Orv::Dir already; delete it first"},
    {R"({"op":"create","path":"/stage/x","type":"Stage::Confg"})",
     "no type \"Stage::Confg\"; did you mean \"Stage::Config\"?"},
    {R"({"op":"create","path":"/stage/x","type":"Directory"})",
     "no type \"Directory\"; there are Orv::Dir, Stage::Config, Stage::AgentConfig, "
     "Stage::AgentStatus, Stage::EnabledConfig, Stage::StageGlobalConfig, Stage::Status, "
     "Stage::CompletionStatusDir, Stage::ProgressDir, Stage::Log, Stage::FatalError, "
     "Stage::StageMgr, Stage::AvailablePaths"},
    {R"({"op":"create","path":"/stage/x","type":"Stage::EventConfig"})",
     "a Stage::EventConfig cannot be a directory's entry; there are Orv::Dir, Stage::Config, "
     "Stage::AgentConfig, Stage::AgentStatus, Stage::EnabledConfig, Stage::StageGlobalConfig, "
     "Stage::Status, Stage::CompletionStatusDir, Stage::ProgressDir, Stage::Log, "
     "Stage::FatalError, Stage::StageMgr, Stage::AvailablePaths"},
    {R"({"op":"create","path":"/stage/x","type":"Stage::StageSm"})",
     "a Stage::StageSm cannot be a directory's entry; there are Orv::Dir, Stage::Config, "
     "Stage::AgentConfig, Stage::AgentStatus, Stage::EnabledConfig, Stage::StageGlobalConfig, "
     "Stage::Status, Stage::CompletionStatusDir, Stage::ProgressDir, Stage::Log, "
     "Stage::FatalError, Stage::StageMgr, Stage::AvailablePaths"},
};
INSTANTIATE_TEST_SUITE_P(WrongPlace, MalformedLine, testing::ValuesIn(wrongPlace));

constexpr Row wrongAttribute[] = {
    {R"({"op":"set","path":"/fatalerror","attr":"rebootReson","value":""})",
     "Stage::FatalError has no attribute \"rebootReson\"; did you mean \"rebootReason\"?"},
    {R"({"op":"set","path":"/fatalerror","attr":"x","value":""})",
     "Stage::FatalError has no attribute \"x\"; it has requestReboot, rebootReason, "
     "reloadCauseDesc"},
    {R"({"op":"set","path":"/stage","attr":"x","value":""})",
     "Orv::Dir has no attribute \"x\"; it has none"},
    {R"({"op":"set","path":"/fatalerror","attr":"rebootReason","key":"x","value":""})",
     "\"rebootReason\" of Stage::FatalError is no collection: leave out \"key\""},
    {R"({"op":"set","path":"/enable/boot","attr":"enabled","value":true})",
     "\"enabled\" of Stage::EnabledConfig is a collection: \"set\" needs \"key\""},
    {R"({"op":"set","path":"/enable/boot","attr":"enabled","key":"x"})",
     "\"enabled\" of Stage::EnabledConfig needs \"value\""},
    {R"({"op":"set","path":"/input/boot/disk","attr":"event","key":"x","value":true})",
     "\"event\" of Stage::AgentConfig makes its members itself: leave out \"value\""},
    {R"({"op":"set","path":"/stage/boot/log/instanceLog/main","attr":"log","value":"x"})",
     "\"log\" of Stage::InstanceLog is appended to by the manager alone"},
    {R"({"op":"unset","path":"/fatalerror","attr":"rebootReason","key":"x"})",
     "\"rebootReason\" of Stage::FatalError is no collection; \"unset\" removes members"},
    {R"({"op":"clear","path":"/fatalerror","attr":"rebootReason"})",
     "\"rebootReason\" of Stage::FatalError is no collection; \"clear\" removes members"},
    {R"({"op":"clear","path":"/stage/boot/log/instanceLog/main","attr":"log"})",
     "\"log\" of Stage::InstanceLog is no collection; \"clear\" removes members"},
};
INSTANTIATE_TEST_SUITE_P(WrongAttribute, MalformedLine, testing::ValuesIn(wrongAttribute));

constexpr Row wrongValue[] = {
    {R"({"op":"set","path":"/fatalerror","attr":"rebootReason","value":1})",
     "the value must be a string"},
    {R"({"op":"set","path":"/fatalerror","attr":"rebootReason","value":null})",
     "the value must be a string"},
    {R"({"op":"set","path":"/fatalerror","attr":"requestReboot","value":"hot"})",
     "attribute \"requestReboot\": the value must be one of \"none\", \"cold\", \"warm\", "
     "\"powerCycle\""},
    {R"({"op":"set","path":"/enable/boot","attr":"enabled","key":"x","value":1})",
     "the value must be true or false"},
    {R"({"op":"set","path":"/enable/boot","attr":"enabled","key":1,"value":true})",
     "the key must be a string"},
    {R"({"op":"set","path":"/enable/boot","attr":"enabled","key":{"a":1},"value":true})",
     "the key must be a string"},
    {R"({"op":"unset","path":"/enable/boot","attr":"enabled","key":true})",
     "the key must be a string"},
    {R"({"op":"set","path":"/input/boot/disk/event/mount","attr":"timeout","value":"soon"})",
     "the value must be a number, or \"inf\", \"-inf\" or \"nan\""},
    {R"({"op":"set","path":"/input/boot/disk/event/mount","attr":"timeout","value":true})",
     "the value must be a number, or \"inf\", \"-inf\" or \"nan\""},
    {R"({"op":"set","path":"/input/boot/disk/event/mount","attr":"critical","value":"true"})",
     "the value must be true or false"},
    {R"({"op":"set","path":"/stage/boot/config/config","attr":"agentDir","value":1})",
     "the value must be the path of an entity, or null"},
    {R"({"op":"set","path":"/stage/boot/config/config","attr":"agentDir","value":"/nowhere"})",
     "no \"/nowhere\" in the tree: the tree has no entry \"nowhere\"; create it first"},
    {R"({"op":"set","path":"/stage/boot/config/config","attr":"agentDir","value":"/global"})",
     "attribute \"agentDir\": the value must be the path of a Orv::Dir, or null"},
    {R"({"op":"set","path":"/stage/boot/config/config","attr":"agentDir","value":"/sm"})",
     "\"/sm\" is the manager's own; what stands at and below \"/sm\" is read-only"},
    {R"({"op":"set","path":"/stage/boot/status/instStatus/main","attr":"activeStage","key":"x","value":null})",
     "attribute \"activeStage\": the value must be a stage whose name is the key"},
    {R"({"op":"set","path":"/stage/boot/status/stage/mount","attr":"event","key":"tape","value":"/input/boot/disk/event/mount"})",
     "attribute \"event\": the value must be an event whose agent is the key"},
    {R"({"op":"set","path":"/agentstatus/boot/disk","attr":"complete","key":"mount","value":true})",
     "the key is no object; it is an object of agent, stage, instance"},
    {R"({"op":"set","path":"/agentstatus/boot/disk","attr":"complete","key":{"agent":"disk","stage":"mount"},"value":true})",
     "the key needs \"instance\"; it is an object of agent, stage, instance"},
    {R"({"op":"set","path":"/agentstatus/boot/disk","attr":"complete","key":{"agent":"disk","stage":"mount","instance":"main","x":1},"value":true})",
     "the key has no field \"x\"; it is an object of agent, stage, instance"},
    {R"({"op":"set","path":"/agentstatus/boot/disk","attr":"complete","key":{"agent":"disk","stage":2,"instance":"main"},"value":true})",
     "\"stage\" of the key must be a string"},
    {R"({"op":"unset","path":"/agentstatus/boot/disk","attr":"complete","key":{"agent":"disk"}})",
     "the key needs \"stage\"; it is an object of agent, stage, instance"},
    {R"({"op":"set","path":"/agentstatus/boot/disk","attr":"stageRequest","key":"mount","value":true})",
     "the value is no object; it is an object of agent, stage, timeout"},
    {R"({"op":"set","path":"/agentstatus/boot/disk","attr":"stageRequest","key":"mount","value":{"agent":"disk","stage":"mount","timeout":"x"}})",
     "\"timeout\" of the value must be a number, or \"inf\", \"-inf\" or \"nan\""},
    {R"({"op":"set","path":"/global","attr":"doNotStartStage","key":{"stageClass":"boot","stages":"mount"},"value":true})",
     "the key needs \"stage\"; it is an object of stageClass, stage"},
};
INSTANTIATE_TEST_SUITE_P(WrongValue, MalformedLine, testing::ValuesIn(wrongValue));

TEST(MalformedJournal, HasNoStateLine) {
    std::istringstream in(text(bootClass() + R"({"op":"set"})"));
    std::ostringstream out;

    EXPECT_THROW(replay(in, out), JournalError);

    EXPECT_EQ(out.str().find("\"state\""), std::string::npos);
}

TEST(MalformedJournal, IsRefusedAtAByteThatIsZero) {
    std::istringstream in(std::string("\n{\"op\":\"\0\"}\n", 12));
    std::ostringstream out;
    try {
        replay(in, out);
        ADD_FAILURE() << "accepted";
    } catch (const JournalError& e) {
        EXPECT_EQ(e.line(), 2u);
        EXPECT_STREQ(e.what(), "not JSON: syntax error at column 8");
    }
}

TEST(MalformedJournal, IsNotLookedAtAfterItsEnd) {
    EXPECT_EQ(replayed({R"({"at":1,"op":"end"})", "nonsense"}), Lines());
}

TEST(AbsentThings, AreNoErrorWhereTheyAreToGo) {
    const Lines before = bootClass() + agent("disk", "mount", 5);
    const Lines quiet = {
        R"({"op":"delete","path":"/stage/nothing"})",
        R"({"op":"delete","path":"/nothing/at/all"})",
        R"({"op":"delete","path":"/input/boot/disk/event/nothing"})",
        R"({"op":"unset","path":"/enable/boot","attr":"enabled","key":"nothing"})",
        R"({"op":"unset","path":"/input/boot/disk","attr":"event","key":"nothing"})",
        R"({"op":"clear","path":"/global","attr":"doNotStartStage"})",
        create("/stage/boot", "Orv::Dir"),
        create("/enable/boot", "Stage::EnabledConfig")};

    EXPECT_EQ(replayed(before + quiet), replayed(before));
}

}  // namespace
}  // namespace Host
