#include "host/plan/PlanReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace Host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr double infinity = std::numeric_limits<double>::infinity();

Plan plan(const std::string& text) { return wantedPlan("p.yaml", "version: 1\n" + text, false); }

PlanClass onlyClass(const std::string& text) { return plan(text).classes.at(0); }

// Stage "a", of which `text` is the value.
PlanStage stage(const std::string& text) {
    const PlanClass made = onlyClass("stages:\n  a: " + text + "\n");
    return made.stages.at(0);
}

PlanParticipant participant(const std::string& text) { return stage(text).participants.at(0); }

std::vector<std::string> names(const std::vector<StageReference>& references) {
    std::vector<std::string> names;
    for (const StageReference& reference : references) names.push_back(reference.stage);
    return names;
}

using Kind = PlanParticipant::Kind;

TEST(PlanReader, SmallestPlanHasEveryDefault) {
    const Plan made = plan("stages: {a: }\n");
    EXPECT_EQ(made.file, "p.yaml");
    EXPECT_EQ(made.text, "version: 1\nstages: {a: }\n");
    ASSERT_EQ(made.classes.size(), 1u);
    const PlanClass& only = made.classes[0];
    EXPECT_EQ(only.name, "system");
    EXPECT_EQ(only.application, "system");
    EXPECT_EQ(only.deadline, infinity);
    EXPECT_EQ(only.deadlinePlace, Place{});
    EXPECT_EQ(only.onTimeout, OnTimeout::reboot);
    EXPECT_EQ(only.reset, "cold");
    EXPECT_EQ(only.reloadCause, "Stage progression timeout.");
    ASSERT_EQ(only.instances.size(), 1u);
    EXPECT_EQ(only.instances[0].name, "main");
    EXPECT_EQ(only.instances[0].start, 0.0);
    EXPECT_FALSE(only.instances[0].suspended);
    EXPECT_THAT(only.doNotStart, IsEmpty());
}

TEST(PlanReader, StageOfNothingIsAMilestoneThatTakesNoTime) {
    for (const char* text : {"", "~", "{}", "{after: b}", "{critical: true}"}) {
        const PlanStage made = stage(text);
        ASSERT_EQ(made.participants.size(), 1u) << text;
        EXPECT_EQ(made.participants[0].name, "a");
        EXPECT_EQ(made.participants[0].kind, Kind::simulated);
        EXPECT_EQ(made.participants[0].takes, (Takes{Takes::Kind::fixed, 0.0}));
        EXPECT_EQ(made.participants[0].limit, 90.0);
        EXPECT_EQ(made.participants[0].limitPlace, Place{});
    }
}

TEST(PlanReader, TextIsACommandOfTheShell) {
    for (const char* text : {"./a --now", "{command: ./a --now}", "'./a --now'"}) {
        const PlanParticipant made = participant(text);
        EXPECT_EQ(made.name, "a");
        EXPECT_EQ(made.kind, Kind::command);
        EXPECT_THAT(made.command, ElementsAre("/bin/sh", "-c", "./a --now"));
        EXPECT_EQ(made.ready, PlanParticipant::Ready::exit);
        EXPECT_EQ(made.stopLimit, 10.0);
        EXPECT_FALSE(made.takes);
    }
}

TEST(PlanReader, ListIsAProgramAndItsArgumentsAsTheyAreWritten) {
    EXPECT_THAT(participant("{command: [./a, 010, '', 'true', 1.50]}").command,
                ElementsAre("./a", "010", "", "true", "1.50"));
}

TEST(PlanReader, CommandHasItsSurroundings) {
    const PlanParticipant made = participant(
        "{command: x, ready: notify, environment: {B: 010, A: ''}, directory: d, stop-limit: "
        "infinity, takes: 5s}");
    EXPECT_EQ(made.ready, PlanParticipant::Ready::notify);
    EXPECT_THAT(made.environment, ElementsAre(Pair("B", "010"), Pair("A", "")));
    EXPECT_EQ(made.directory, "d");
    EXPECT_EQ(made.stopLimit, infinity);
    EXPECT_EQ(made.takes, (Takes{Takes::Kind::fixed, 5.0}));
}

TEST(PlanReader, ExternalParticipantSaysHowLongItTakesOrDoesNot) {
    EXPECT_EQ(participant("{external: true}").kind, Kind::external);
    EXPECT_FALSE(participant("{external: true}").takes);
    EXPECT_EQ(participant("{external: true, takes: 2}").takes, (Takes{Takes::Kind::fixed, 2.0}));
}

TEST(PlanReader, ParticipantOfNothingTakesTheAssumedTime) {
    const PlanStage made = stage("{participants: {x: , y: {}, z: {critical: true}}}");
    ASSERT_EQ(made.participants.size(), 3u);
    for (const PlanParticipant& one : made.participants) {
        EXPECT_EQ(one.kind, Kind::simulated);
        EXPECT_EQ(one.takes, assumedTakes);
    }
}

TEST(PlanReader, TakesIsADurationOrADistribution) {
    const auto takes = [](const std::string& text) {
        const PlanParticipant made = participant("{takes: " + text + "}");
        EXPECT_EQ(made.kind, Kind::simulated);
        return made.takes.value();
    };
    EXPECT_EQ(takes("1min 30s"), (Takes{Takes::Kind::fixed, 90.0}));
    EXPECT_EQ(takes("0"), (Takes{Takes::Kind::fixed, 0.0}));
    EXPECT_EQ(takes("never"), (Takes{Takes::Kind::never}));
    EXPECT_EQ(takes("{fixed: 3s}"), (Takes{Takes::Kind::fixed, 3.0}));
    EXPECT_EQ(takes("{uniform: [1s, 2s]}"), (Takes{Takes::Kind::uniform, 1.0, 2.0}));
    EXPECT_EQ(takes("{normal: [5s, 500ms]}"), (Takes{Takes::Kind::normal, 5.0, 0.5}));
    EXPECT_EQ(takes("{lost: 2%, exponential: 4}"),
              (Takes{Takes::Kind::exponential, 4.0, 0.0, 0.02}));
    EXPECT_EQ(takes("{fixed: 1, lost: 0.25}"), (Takes{Takes::Kind::fixed, 1.0, 0.0, 0.25}));
    EXPECT_EQ(takes("{fixed: 1, lost: 100%}"), (Takes{Takes::Kind::fixed, 1.0, 0.0, 1.0}));
}

TEST(PlanReader, InnermostLimitWins) {
    const PlanClass made = onlyClass(
        "limit: 30s\n"
        "stages:\n"
        "  a:\n"
        "    limit: 20s\n"
        "    participants:\n"
        "      x: {limit: infinity}\n"
        "      y:\n"
        "  b:\n"
        "  c: {limit: 10s}\n"
        "  d: ./d\n");
    const PlanParticipant& x = made.stages[0].participants[0];
    EXPECT_EQ(x.limit, infinity);
    EXPECT_EQ(x.limitPlace, (Place{7, 18}));
    const PlanParticipant& y = made.stages[0].participants[1];
    EXPECT_EQ(y.limit, 20.0);
    EXPECT_EQ(y.limitPlace, (Place{5, 12}));
    EXPECT_EQ(made.stages[1].participants[0].limit, 30.0);
    EXPECT_EQ(made.stages[1].participants[0].limitPlace, (Place{2, 8}));
    EXPECT_EQ(made.stages[2].participants[0].limit, 10.0);
    EXPECT_EQ(made.stages[3].participants[0].limit, 30.0);
}

TEST(PlanReader, StageSaysWhatItsParticipantsDoNot) {
    const PlanStage made = stage(
        "{critical: true, auto-complete: 5s, participants: {x: , y: {critical: false, "
        "auto-complete: infinity}, z: ./z}}");
    EXPECT_TRUE(made.critical());
    EXPECT_TRUE(made.participants[0].critical);
    EXPECT_EQ(made.participants[0].autoComplete, 5.0);
    EXPECT_FALSE(made.participants[1].critical);
    EXPECT_EQ(made.participants[1].autoComplete, std::nullopt);
    EXPECT_EQ(made.participants[1].autoCompletePlace.line, 3u);
    EXPECT_TRUE(made.participants[2].critical);
    EXPECT_FALSE(stage("{participants: {x: }}").critical());
}

TEST(PlanReader, StageAndParticipantComeAfterStages) {
    const PlanClass made = onlyClass(
        "stages:\n"
        "  a:\n"
        "  b: {after: a}\n"
        "  c:\n"
        "    after: [a, b]\n"
        "    participants:\n"
        "      x: {after: nowhere}\n");
    EXPECT_THAT(names(made.stages[1].after), ElementsAre("a"));
    EXPECT_THAT(made.stages[1].participants[0].after, IsEmpty());
    EXPECT_EQ(made.stages[1].after[0].place, (Place{4, 14}));
    EXPECT_THAT(names(made.stages[2].after), ElementsAre("a", "b"));
    EXPECT_THAT(names(made.stages[2].participants[0].after), ElementsAre("nowhere"));
}

TEST(PlanReader, StagesKeepTheOrderOfTheFile) {
    const PlanClass made = onlyClass("stages: {c: , a: , b: }\n");
    ASSERT_EQ(made.stages.size(), 3u);
    EXPECT_EQ(made.stages[0].name, "c");
    EXPECT_EQ(made.stages[2].name, "b");
    EXPECT_EQ(made.stage("a"), &made.stages[1]);
    EXPECT_EQ(made.stage("d"), nullptr);
}

TEST(PlanReader, ClassSaysHowItGoes) {
    const PlanClass made = onlyClass(
        "class: switchover\n"
        "deadline: 5s\n"
        "on-timeout: continue\n"
        "reset: power-cycle\n"
        "reload-cause: Too slow.\n"
        "do-not-start: [b]\n"
        "stages: {a: , b: }\n");
    EXPECT_EQ(made.name, "switchover");
    EXPECT_EQ(made.place, (Place{2, 8}));
    EXPECT_EQ(made.application, "switchover");
    EXPECT_EQ(made.deadline, 5.0);
    EXPECT_EQ(made.deadlinePlace, (Place{3, 11}));
    EXPECT_EQ(made.onTimeout, OnTimeout::proceed);
    EXPECT_EQ(made.reset, "powerCycle");
    EXPECT_EQ(made.reloadCause, "Too slow.");
    EXPECT_THAT(names(made.doNotStart), ElementsAre("b"));
    EXPECT_EQ(onlyClass("application: x\nstages: {a: }\n").application, "x");
    EXPECT_EQ(onlyClass("on-timeout: wait\nstages: {a: }\n").onTimeout, OnTimeout::wait);
    EXPECT_EQ(onlyClass("reset: none\non-timeout: wait\nstages: {a: }\n").reset, "none");
}

TEST(PlanReader, ClassesHaveTheirNames) {
    const Plan made = plan(
        "classes:\n"
        "  boot: {stages: {a: }}\n"
        "  more: {application: y, stages: {b: }}\n");
    ASSERT_EQ(made.classes.size(), 2u);
    EXPECT_EQ(made.classes[0].application, "boot");
    EXPECT_EQ(made.classes[1].application, "y");
    EXPECT_EQ(made.stageClass("more"), &made.classes[1]);
}

TEST(PlanReader, InstancesAreNamesOrHaveStarts) {
    const PlanClass list = onlyClass("instances: [x, 2]\nstages: {a: }\n");
    ASSERT_EQ(list.instances.size(), 2u);
    EXPECT_EQ(list.instances[1].name, "2");
    const PlanClass mapping = onlyClass(
        "instances: {x: , y: {start: 1min, suspended: true}, z: {start: 0}}\nstages: {a: }\n");
    ASSERT_EQ(mapping.instances.size(), 3u);
    EXPECT_EQ(mapping.instances[0].start, 0.0);
    EXPECT_EQ(mapping.instances[1].start, 60.0);
    EXPECT_TRUE(mapping.instances[1].suspended);
    EXPECT_FALSE(mapping.instances[2].suspended);
}

TEST(PlanReader, RefusedPlanShowsEveryErrorWithItsLine) {
    try {
        wantedPlan("boot.yaml", "version: 1\nlimit: 0\nstages:\n  a: {criticl: true}\n", false);
        FAIL() << "it was taken";
    } catch (const PlanRefused& refused) {
        EXPECT_STREQ(refused.what(),
                     "boot.yaml:2:8: error: \"limit: 0\" would time the stage out at once: write "
                     "infinity for no limit, or 1us for at once\n"
                     "    2 | limit: 0\n"
                     "      |        ^\n"
                     "boot.yaml:4:7: error: a stage has no key \"criticl\"; did you mean "
                     "\"critical\"?\n"
                     "    4 |   a: {criticl: true}\n"
                     "      |       ^\n");
        ASSERT_EQ(refused.diagnostics.size(), 2u);
        EXPECT_EQ(refused.diagnostics[0].rule, "zero");
        EXPECT_EQ(refused.diagnostics[1].rule, "unknown-key");
    }
}

TEST(PlanReader, RefusedPlanIsColouredOnRequest) {
    try {
        wantedPlan("boot.yaml", "", true);
        FAIL() << "it was taken";
    } catch (const PlanRefused& refused) {
        EXPECT_NE(std::string(refused.what()).find("\033[1;31merror:\033[0m"), std::string::npos);
    }
}

TEST(PlanReader, ThousandsOfStagesAreRead) {
    std::string text = "stages:\n";
    for (int i = 0; i < 5'000; ++i) text += "  s" + std::to_string(i) + ": {after: s0x}\n";
    EXPECT_EQ(onlyClass(text).stages.size(), 5'000u);
}

TEST(PlanReader, ThousandsOfBadReferencesAreToldWithoutDelay) {
    std::string text = "stages:\n";
    for (int i = 0; i < 900; ++i) text += "  stage-number-" + std::to_string(i) + ":\n";
    text += "do-not-start:\n";
    for (int i = 0; i < 5'000; ++i) text += "  - stage-nomber-x" + std::to_string(i) + "\n";
    std::vector<Diagnostic> diagnostics;
    readPlan("p.yaml", "version: 1\n" + text, diagnostics);
    EXPECT_EQ(diagnostics.size(), 1000u);
}

}  // namespace
}  // namespace Host
