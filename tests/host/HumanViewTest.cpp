#include "host/HumanView.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "host/Replay.h"
#include "host/Terminal.h"
#include "tests/host/Journals.h"

namespace Host {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string shown(const Lines& journal, HumanStyle style = {}) {
    std::istringstream in(text(journal));
    std::ostringstream out;
    HumanView view(out, style);
    replay(in, view);
    return out.str();
}

std::string set(const std::string& path, const std::string& attr, const std::string& value) {
    return R"({"op":"set","path":")" + path + R"(","attr":")" + attr + R"(","value":)" + value +
           "}";
}
std::string hold(const std::string& stage) {
    return R"({"op":"set","path":"/global","attr":"doNotStartStage","key":{"stageClass":"boot","stage":")" +
           stage + R"("},"value":true})";
}
std::string depend(const std::string& agent, const std::string& stage, const std::string& on) {
    return R"({"op":"set","path":"/input/boot/)" + agent + "/event/" + stage +
           R"(","attr":"dependency","key":")" + on + R"(","value":true})";
}
const std::string config = "/stage/boot/config/config";
std::string end(double at) { return "{\"at\":" + std::to_string(at) + ",\"op\":\"end\"}"; }

TEST(HumanView, ShowsTheLogAndHowItEnded) {
    EXPECT_EQ(shown(bootClass() + agent("disk", "mount", 5) + enable("main") +
                    report(2.5, "disk", "mount", "main")),
              "    TIME  INSTANCE              WHAT\n"
              "   0.000  boot/main             Boot stages started\n"
              "   0.000  boot/main             stage mount started\n"
              "   0.000  boot/main               event mount:disk started\n"
              "   2.500  boot/main               event mount:disk completed\n"
              "   2.500  boot/main             stage mount is complete\n"
              "   2.500  boot/main             Boot stages complete\n"
              "\n"
              "After 2.500 s\n"
              "  boot/main             complete at 2.500, 1 stage\n");
}

TEST(HumanView, OfNothingSaysSo) {
    EXPECT_EQ(shown({}), "After 0.000 s: no instance is enabled\n");
}

TEST(HumanView, TellsAnAssumedCompletionFromAReport) {
    const Lines before = bootClass() + agent("license", "check", 9) +
                         set("/input/boot/license/event/check", "autoCompleteTimeout", "2") +
                         set("/input/boot/license/event/check", "enableAutoComplete", "true") +
                         enable("main");

    EXPECT_THAT(shown(before), EndsWith("complete at 2.000, 1 stage\n"
                                        "    check  auto-completed for license\n"));
    EXPECT_THAT(shown(before + report(1, "license", "check", "main")),
                EndsWith("complete at 1.000, 1 stage\n"));
}

TEST(HumanView, TellsAStageThatWasPassedOverFromACompleteOne) {
    EXPECT_THAT(
        shown(bootClass() + agent("disk", "mount", 5) + enable("main")),
        EndsWith("complete at 5.000, 1 stage\n"
                 "    mount  timed out at 5.000, passed over; still no report from disk\n"));
    EXPECT_THAT(shown(bootClass() + agent("disk", "mount", 5) + enable("main") +
                      report(9, "disk", "mount", "main")),
                EndsWith("complete at 5.000, 1 stage\n"
                         "    mount  timed out at 5.000, passed over; reported later\n"));
}

TEST(HumanView, TellsWhatRunsAndWhatKeepsTheOthersFromStarting) {
    const Lines journal = bootClass() + agent("disk", "mount", 50) + agent("web", "serve", 50) +
                          depend("web", "serve", "mount") + depend("web", "serve", "moon") +
                          agent("nic", "network", 50) + hold("network") + enable("main") + end(7);

    EXPECT_THAT(shown(journal),
                EndsWith("After 7.000 s\n"
                         "  boot/main             running, 0 of 3 stages complete\n"
                         "    mount    running, waiting for disk\n"
                         "    serve    not started; needs mount, moon\n"
                         "    network  not started; held by the do-not-start list\n"));
    EXPECT_THAT(shown(bootClass() + agent("nic", "network", 50) + hold("network") + enable("main") +
                      end(7)),
                HasSubstr("held, 0 of 1 stages complete\n"));
}

TEST(HumanView, TellsThatCriticalStagesStartFirst) {
    const Lines journal = bootClass() + agent("disk", "mount", 50) + agent("bmc", "firmware", 50) +
                          set("/input/boot/bmc/event/firmware", "critical", "true") +
                          hold("firmware") + enable("main") + end(7);

    EXPECT_THAT(shown(journal), HasSubstr("mount     not started; critical stages start first\n"));
}

TEST(HumanView, ShowsACriticalStageThatIsWaitedFor) {
    const Lines overdue = bootClass() + agent("bmc", "firmware", 2) +
                          set("/input/boot/bmc/event/firmware", "critical", "true") +
                          enable("main");

    EXPECT_THAT(shown(overdue),
                HasSubstr("2.000  ! warning             Boot stage firmware timed out "
                          "(STAGEMGR_STAGE_SLOW)\n"));
    EXPECT_THAT(shown(overdue),
                EndsWith("waiting for a critical stage that timed out, 0 of 1 stages complete\n"
                         "    firmware  timed out, critical, waiting for bmc\n"));
    EXPECT_THAT(shown(overdue + report(4, "bmc", "firmware", "main")),
                EndsWith("complete at 4.000, 1 stage\n"
                         "    firmware  timed out, complete at 4.000\n"));
}

TEST(HumanView, ShowsTheRebootRequestOnce) {
    const std::string all =
        shown(bootClass() + agent("bmc", "firmware", 2) +
              set("/input/boot/bmc/event/firmware", "critical", "true") +
              set(config, "stageTimeoutIsFatal", "true") + set(config, "resetMode", "\"cold\"") +
              set(config, "reloadCauseDesc", "\"Timeout.\"") + enable("main"));

    EXPECT_THAT(all, HasSubstr("   2.000  ! reboot              requested (cold): firmware timed "
                               "out. Timeout during Boot.\n"));
    EXPECT_EQ(all.find("! reboot"), all.rfind("! reboot"));
    EXPECT_THAT(all, HasSubstr("stopped by the reboot request, 0 of 1 stages complete\n"));
}

TEST(HumanView, ShowsASuspendedInstance) {
    const std::string all =
        shown(bootClass() + agent("disk", "mount", 5) + agent("web", "serve", 5) +
              depend("web", "serve", "mount") + enable("main") + R"({"op":"settle"})" +
              R"({"op":"set","path":"/enable/boot","attr":"suspended","key":"main","value":true})" +
              report(1, "disk", "mount", "main"));

    EXPECT_THAT(all,
                HasSubstr("1.000  boot/main             suspended: no further stage starts\n"));
    EXPECT_THAT(all, HasSubstr("suspended, 1 of 2 stages complete\n"));
}

TEST(HumanView, NamesWhatAClassLacks) {
    Lines journal = bootClass() + enable("main");
    std::erase(journal, create("/agentstatus/boot", "Orv::Dir"));

    EXPECT_THAT(shown(journal),
                EndsWith("boot/main             not managed: no /agentstatus/boot\n"));
}

TEST(HumanView, ShowsWatchdogConsoleAndExceptions) {
    std::ostringstream out;
    HumanView view(out);
    view.onWatchdog(1, *Orv::make<Halbe::HalbeInfo>("x", 1u, false));
    view.onPrint(2, " Critical!");
    view.onError(3, "null ValidPtr\n");

    EXPECT_THAT(out.str(), HasSubstr("   1.000  ! watchdog            set to  s\n"));
    EXPECT_THAT(out.str(), HasSubstr("   2.000  ! console              Critical!\n"));
    EXPECT_THAT(out.str(), HasSubstr("   3.000  ! exception           null ValidPtr\\n\n"));
}

TEST(HumanView, DisarmsHostileNames) {
    const std::string all = shown(bootClass() + set(config, "application", R"("\u001b[2J\nBoot")") +
                                  agent("disk", "mount", 5) + enable(R"(a\u202eb)"));

    EXPECT_EQ(all.find('\033'), std::string::npos);
    EXPECT_THAT(all, HasSubstr("boot/a\\u202eb         \\u001b[2J\\nBoot stages started\n"));
}

TEST(HumanView, BreaksRowsAtTheEdgeOfATerminal) {
    std::ostringstream out;
    HumanView view(out, {.columns = 58});
    view.onPrint(1, "one two three four five six seven eight nine ten eleven");
    view.onPrint(2, "  indented text goes on at its own indentation");
    view.onPrint(3, std::string(60, 'x'));

    EXPECT_EQ(out.str(),
              "    TIME  INSTANCE              WHAT\n"
              "   1.000  ! console             one two three four five\n"
              "                                six seven eight nine ten\n"
              "                                eleven\n"
              "   2.000  ! console               indented text goes on at\n"
              "                                  its own indentation\n"
              "   3.000  ! console             xxxxxxxxxxxxxxxxxxxxxxxxxx\n"
              "                                xxxxxxxxxxxxxxxxxxxxxxxxxx\n"
              "                                xxxxxxxx\n");
}

// East Asian characters need two columns each.
TEST(HumanView, BreaksRowsOfWideCharactersAtTheEdge) {
    std::string wide;
    for (int i = 0; i < 40; ++i) wide += "\xe6\x97\xa5";

    std::istringstream lines(shown(bootClass() + agent("disk", wide.c_str(), 5) + enable("main") +
                                       report(2.5, "disk", wide.c_str(), "main"),
                                   {.columns = 60}));

    std::size_t widest = 0;
    for (std::string line; std::getline(lines, line);)
        widest = std::max(widest, terminalColumns(line));
    EXPECT_LE(widest, 60U);
    EXPECT_GE(widest, 58U) << "and not long before it";
}

TEST(HumanView, ColoursOnlyWhenAsked) {
    const Lines journal = bootClass() + agent("disk", "mount", 5) + enable("main");

    EXPECT_EQ(shown(journal).find('\033'), std::string::npos);
    const std::string coloured = shown(journal, {.colour = true});
    EXPECT_THAT(coloured, HasSubstr("\033[32mcomplete at 5.000, 1 stage\033[0m"));
    EXPECT_THAT(coloured, HasSubstr("\033[33mtimed out at 5.000"));
}

}  // namespace
}  // namespace Host
