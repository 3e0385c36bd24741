#include "host/plan/Check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <set>
#include <sstream>

#include "tests/host/Steps.h"

namespace Host {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::SizeIs;

constexpr double forever = std::numeric_limits<double>::infinity();

// What is found, as "severity rule: text", without the notes.
std::vector<std::string> found(const PlanClass& stageClass, bool notes = false) {
    const Plan plan = planOf({stageClass});
    std::vector<std::string> lines;
    for (const Diagnostic& diagnostic : check(plan).diagnostics)
        if (notes || diagnostic.severity != Diagnostic::Severity::note)
            lines.push_back(std::string(severityName(diagnostic.severity)) + " " + diagnostic.rule +
                            ": " + diagnostic.text);
    return lines;
}

std::vector<std::string> related(const PlanClass& stageClass, const std::string& rule) {
    const Plan plan = planOf({stageClass});
    std::vector<std::string> lines;
    for (const Diagnostic& diagnostic : check(plan).diagnostics)
        if (diagnostic.rule == rule)
            for (const Diagnostic::Related& other : diagnostic.related)
                lines.push_back(std::to_string(other.place.line) + ": " + other.text);
    return lines;
}

// Its only participant.
PlanParticipant& part(PlanStage& stage) { return stage.participants.front(); }

PlanClass held(PlanClass stageClass, const std::string& stage) {
    stageClass.doNotStart.push_back({stage, {}});
    return stageClass;
}

TEST(Check, AGoodPlanHasNothingToComplainOf) {
    PlanClass boot = steps({critical(step("power", 5)), critical(step("disks", 8, {"power"})),
                            step("web", 3, {"disks"})});
    boot.deadline = 300;

    EXPECT_THAT(found(boot, true), IsEmpty());
}

TEST(Check, SaysWhichNameNoStageHas) {
    EXPECT_THAT(found(steps({step("database", 1), step("web", 1, {"databse"})})),
                ElementsAre("error missing-stage: stage \"web\" comes after \"databse\", which no "
                            "stage is called; did you mean \"database\"?"));
    EXPECT_THAT(found(steps({step("web", 1, {"x"})})),
                ElementsAre("error missing-stage: stage \"web\" comes after \"x\", which no stage "
                            "is called; add that stage, or do not come after "
                            "it"));
}

TEST(Check, SaysWhoseWorkDependsOnAMissingStage) {
    PlanClass boot = steps({step("web", 1)});
    part(boot.stages[0]).after.push_back({"gone", {7, 3}});

    EXPECT_THAT(found(boot), ElementsAre(HasSubstr("missing-stage: the work of \"web\" in stage "
                                                   "\"web\" comes after \"gone\"")));
}

TEST(Check, SaysWhenAnotherClassHasTheMissingStage) {
    PlanClass other = stageClass("other", {step("net", 1)});
    const Plan plan = planOf({steps({step("web", 1, {"net"})}), other});

    EXPECT_THAT(check(plan).diagnostics.front().text,
                HasSubstr("; class \"other\" has one, but stages wait for stages of their own "
                          "class only"));
}

TEST(Check, WhatComesAfterAStageThatCannotStartNeverStarts) {
    const PlanClass boot =
        steps({step("a", 1, {"gone"}), step("b", 1, {"a"}), step("c", 1, {"b"}), step("free", 1)});

    EXPECT_THAT(found(boot),
                Contains("error never-starts: \"b\", \"c\" can never start: they come after "
                         "\"a\", which comes after \"gone\", which no stage is called; put that "
                         "right first"));
    EXPECT_THAT(related(boot, "never-starts"),
                ElementsAre("0: each comes after the next: \"b\" -> \"a\"",
                            "0: each comes after the next: \"c\" -> \"b\" -> \"a\""));
}

TEST(Check, ShowsACycleWithThePlacesOfItsEdges) {
    PlanClass boot = steps({step("a", 1), step("b", 1), step("c", 1)});
    boot.stages[0].after.push_back({"b", {3, 5}});
    boot.stages[1].after.push_back({"c", {6, 5}});
    part(boot.stages[2]).after.push_back({"a", {9, 5}});

    EXPECT_THAT(found(boot), ElementsAre("error cycle: these stages can never start, since each "
                                         "comes after the next: \"a\" -> \"b\" -> \"c\" -> "
                                         "\"a\"; remove one of these"));
    EXPECT_THAT(related(boot, "cycle"),
                ElementsAre("3: stage \"a\" comes after \"b\" here",
                            "6: stage \"b\" comes after \"c\" here",
                            "9: the work of \"c\" in stage \"c\" comes after \"a\" here"));
}

TEST(Check, ShowsTheShortestCycleOfATangle) {
    const PlanClass boot = steps(
        {step("a", 1, {"b"}), step("b", 1, {"c"}), step("c", 1, {"a", "d"}), step("d", 1, {"c"})});

    EXPECT_THAT(found(boot),
                ElementsAre("error cycle: these stages can never start, since each comes after the "
                            "next: \"c\" -> \"d\" -> \"c\" (4 stages come after each other in this "
                            "and other ways: \"a\", \"b\", \"c\", \"d\"); remove one of these"));
}

TEST(Check, EachTangleIsToldOfOnce) {
    EXPECT_THAT(found(steps({step("a", 1, {"b"}), step("b", 1, {"a"}), step("x", 1, {"x"}),
                             step("y", 1, {"x"}), step("z", 1, {"y", "a"})})),
                ElementsAre(HasSubstr("\"a\" -> \"b\" -> \"a\""),
                            "error cycle: stage \"x\" comes after itself, and can never start: "
                            "\"x\" -> \"x\"; remove that",
                            HasSubstr("never-starts: \"z\" can never start: it comes after \"a\", "
                                      "which is in a cycle"),
                            HasSubstr("never-starts: \"y\" can never start")));
}

TEST(Check, ADiamondIsNoCycle) {
    EXPECT_THAT(found(steps({step("a", 1), step("b", 1, {"a"}), step("c", 1, {"a"}),
                             step("d", 1, {"b", "c"})})),
                IsEmpty());
}

TEST(Check, ACriticalStageThatCannotStartFreezesAllOthers) {
    const PlanClass boot = steps({critical(step("a", 1, {"gone"})), step("b", 1), step("c", 1)});

    EXPECT_THAT(found(boot),
                Contains("error critical-freezes: stage \"a\" is critical and can never start, so "
                         "nothing ever starts that is not critical: 2 stages are not critical, "
                         "and wait until all critical ones have started: \"b\", \"c\""));
}

TEST(Check, AStageFreezesOthersTooWhenACriticalOneComesAfterIt) {
    PlanClass boot = steps({step("a", 1, {"a"}), critical(step("b", 1, {"a"})), step("c", 1)});
    part(boot.stages[1]).place = {8, 2};

    EXPECT_THAT(found(boot), Contains(HasSubstr("critical-freezes: stage \"a\" is critical")));
    EXPECT_THAT(related(boot, "critical-freezes"),
                ElementsAre("8: \"b\" is critical here, and comes after \"a\""));
}

TEST(Check, NothingIsFrozenByAStageThatIsNotCriticalOrWhenAllAre) {
    EXPECT_THAT(found(steps({step("a", 1, {"gone"}), critical(step("b", 1)), step("c", 1)})),
                Not(Contains(HasSubstr("critical-freezes"))));
    EXPECT_THAT(found(steps({critical(step("a", 1, {"gone"})), critical(step("b", 1))})),
                Not(Contains(HasSubstr("critical-freezes"))));
}

TEST(Check, AHeldCriticalStageFreezesAllOthers) {
    EXPECT_THAT(found(held(steps({critical(step("a", 1)), step("b", 1)}), "a")),
                ElementsAre("error critical-freezes: while do-not-start holds \"a\", which is "
                            "critical, nothing starts that is not: 1 stage is not critical, and "
                            "waits until all critical ones have started: \"b\"; release it, or let "
                            "it not be critical"));
}

TEST(Check, SaysWhatAHeldStageBlocks) {
    const PlanClass boot =
        held(steps({step("a", 1), step("b", 1, {"a"}), step("c", 1, {"b"}), step("d", 1)}), "a");

    EXPECT_THAT(found(boot),
                ElementsAre("warning held-chain: while do-not-start holds \"a\", 2 stages cannot "
                            "start either: \"b\", \"c\""));
    EXPECT_THAT(found(held(steps({step("a", 1), step("b", 1)}), "b")), IsEmpty());
}

TEST(Check, SaysThatTheDeadlineDoesNotWaitForAHeldStage) {
    PlanClass boot = held(steps({step("a", 1), step("b", 1)}), "b");
    boot.deadline = 300;

    EXPECT_THAT(found(boot),
                ElementsAre("warning held-deadline: while do-not-start holds \"b\", the "
                            "progression cannot complete: it ends after its deadline of 5min in a "
                            "request for a reboot; release it in time, or let the deadline be "
                            "infinity"));
}

TEST(Check, NotesStagesThatAreCriticalForOthersSake) {
    const PlanClass boot =
        steps({step("a", 1), step("b", 1, {"a"}), critical(step("c", 1, {"b"})), step("d", 1)});

    EXPECT_THAT(found(boot), IsEmpty());
    EXPECT_THAT(found(boot, true),
                ElementsAre("note becomes-critical: stage \"a\" is critical, since \"b\", which "
                            "is, comes after it",
                            "note becomes-critical: stage \"b\" is critical, since \"c\", which "
                            "is, comes after it"));
    EXPECT_THAT(
        related(boot, "becomes-critical"),
        ElementsAre("0: \"c\" is critical here, and comes after \"a\" through 1 other stage",
                    "0: \"c\" is critical here, and comes after \"b\""));
}

TEST(Check, ALimitOfNothingIsAnError) {
    PlanClass boot = steps({limited(step("a", 1), 0.0)});
    part(boot.stages[0]).takes.reset();
    part(boot.stages[0]).kind = PlanParticipant::Kind::external;

    EXPECT_THAT(found(boot),
                ElementsAre("error zero-limit: stage \"a\" has a limit of 0s, so it times out as "
                            "soon as it starts, and the progression goes on without it; if it is "
                            "to have no limit, say infinity"));
    part(boot.stages[0]).limit = 0.0005;
    EXPECT_THAT(found(boot), ElementsAre(HasSubstr("warning zero-limit: stage \"a\" has a limit of "
                                                   "500us, so it times out almost at once")));
    part(boot.stages[0]).limit = 0.001;
    EXPECT_THAT(found(boot), IsEmpty());
}

TEST(Check, AutoCompletionAfterTheLimitOfItsStageIsTooLate) {
    PlanClass boot = steps({limited(step("a", 1), 30)});
    part(boot.stages[0]).autoComplete = 31;

    EXPECT_THAT(found(boot),
                ElementsAre("warning auto-complete-too-late: \"a\" would be auto-completed after "
                            "31s, but its stage \"a\" is out of its limit after 30s already, and "
                            "then the progression goes on without it; auto-complete it sooner, or "
                            "raise the limit"));
    part(boot.stages[0]).autoComplete = 30;
    EXPECT_THAT(found(boot), IsEmpty());
}

TEST(Check, TheStagesLimitIsTheLargestOfItsParticipants) {
    PlanClass boot = steps({limited(step("a", 1), 30)});
    part(boot.stages[0]).autoComplete = 31;
    boot.stages[0].participants.push_back(takes("other", 1));
    boot.stages[0].participants.back().limit = 31;

    EXPECT_THAT(found(boot), IsEmpty());
}

TEST(Check, NotesALimitThatHasNoEffect) {
    PlanClass boot = steps({limited(step("a", 1), 30)});
    boot.stages[0].participants.push_back(takes("other", 1));
    part(boot.stages[0]).place = {3, 5};
    part(boot.stages[0]).limitPlace = {4, 5};

    EXPECT_THAT(found(boot, true),
                ElementsAre("note limit-without-effect: the limit of 30s for \"a\" has no effect: "
                            "the largest limit in stage \"a\" counts, which is the 1min 30s of "
                            "\"other\""));
    part(boot.stages[0]).limitPlace = {1, 5};
    EXPECT_THAT(found(boot, true), IsEmpty()) << "said for several";
}

TEST(Check, SaysWhatBecomesOfAStageWhoseWorkTakesLongerThanItsLimit) {
    PlanClass boot = steps({limited(step("a", 31), 30)});

    EXPECT_THAT(found(boot),
                ElementsAre("warning takes-too-long: \"a\" takes 31s, but its stage \"a\" is out "
                            "of its limit after 30s, and then the progression goes on without it; "
                            "raise the limit"));
    part(boot.stages[0]).takes = Takes{Takes::Kind::uniform, 31, 40};
    EXPECT_THAT(found(boot), ElementsAre(HasSubstr("\"a\" takes at least 31s")));
    part(boot.stages[0]).takes = Takes{Takes::Kind::uniform, 30, 40};
    EXPECT_THAT(found(boot), IsEmpty());

    boot = steps({critical(limited(step("a", 31), 30))});
    EXPECT_THAT(found(boot), ElementsAre(AllOf(HasSubstr("error takes-too-long"),
                                               HasSubstr("and then a reboot is requested, since "
                                                         "the stage is critical"))));
    boot.onTimeout = OnTimeout::wait;
    boot.deadline = 1000;
    EXPECT_THAT(found(boot), ElementsAre(AllOf(HasSubstr("warning takes-too-long"),
                                               HasSubstr("the progression is suspended until it is "
                                                         "done"))));
}

TEST(Check, WhatThePlanTakesMustFitIntoTheDeadline) {
    PlanClass boot = steps({step("a", 20), step("b", 21, {"a"}), step("c", 5)});
    boot.deadline = 40;

    EXPECT_THAT(found(boot),
                ElementsAre("error takes-too-long: the deadline of 40s is missed, and a reboot "
                            "requested, even if everybody takes only as long as the plan says: "
                            "these stages need 41s: \"a\" 20s -> \"b\" 21s; raise the deadline"));
    boot.deadline = 41;
    EXPECT_THAT(found(boot), ElementsAre(HasSubstr("these stages need 41s, and what ends with the "
                                                   "deadline is too late: ")));
    boot.deadline = 41.001;
    EXPECT_THAT(found(boot), Not(Contains(HasSubstr("takes-too-long"))));
}

TEST(Check, TimesThatAddUpToTheDeadlineDoSoWhateverBinaryFractionsMakeOfThem) {
    PlanClass boot = steps({step("a", 0.7), step("b", 0.1, {"a"})});
    ASSERT_LT(0.7 + 0.1, 0.8);
    boot.deadline = 0.8;

    EXPECT_THAT(found(boot), ElementsAre(HasSubstr("error takes-too-long: ")));
    boot.deadline = 0.800001;
    EXPECT_THAT(found(boot), Not(Contains(HasSubstr("takes-too-long"))));
}

TEST(Check, WhatEverybodyTypicallyTakesMustFitIntoTheDeadline) {
    PlanClass boot = steps({step("a", 1), step("b", 9, {"a"})});
    part(boot.stages[0]).takes = Takes{Takes::Kind::normal, 2, 1};
    boot.deadline = 10.5;

    EXPECT_THAT(found(boot),
                ElementsAre("error takes-too-long: the deadline of 10.5s is missed, and a reboot "
                            "requested, if everybody takes what it typically takes: these stages "
                            "need 11s: \"a\" 2s -> \"b\" 9s; raise the deadline"));
}

TEST(Check, BeingSoonDoneMayMissTheDeadline) {
    PlanClass boot = steps(
        {limited(critical(step("fast", 1)), 5), limited(critical(step("first", 1.9)), 2),
         limited(critical(step("second", 5.5, {"first"})), 6), limited(step("other", 4.9), 5)});
    boot.deadline = 10;
    EXPECT_THAT(found(boot),
                ElementsAre(AllOf(HasSubstr("error takes-too-long"),
                                  HasSubstr("these stages need 12.3s: \"first\" 1.9s -> \"second\" "
                                            "5.5s -> \"other\" 4.9s (waited for the critical "
                                            "stages to start)"))));

    boot.deadline = 12.5;
    EXPECT_THAT(found(boot), ElementsAre(HasSubstr("warning deadline-too-short")));

    for (PlanStage& stage : boot.stages) {
        part(stage).kind = PlanParticipant::Kind::command;
        part(stage).takes.reset();
    }
    boot.deadline = 13;
    EXPECT_THAT(found(boot), ElementsAre(HasSubstr("the limits on this way add up to 13s")));
    boot.deadline = 13.001;
    EXPECT_THAT(found(boot), IsEmpty());
}

TEST(Check, WhatNobodySaysIsNotHeldAgainstTheDeadline) {
    PlanClass boot = steps({step("a", 1), step("b", 1, {"a"})});
    for (PlanStage& stage : boot.stages) {
        part(stage).kind = PlanParticipant::Kind::external;
        part(stage).takes.reset();
    }
    boot.deadline = 1.5;

    EXPECT_THAT(found(boot), Not(Contains(HasSubstr("takes-too-long"))));
}

TEST(Check, LimitsThatAddUpToMoreThanTheDeadlineAreAWarning) {
    PlanClass boot = steps(
        {limited(step("a", 1), 30), limited(step("b", 1, {"a"}), 30), limited(step("c", 1), 45)});
    boot.deadline = 59;

    EXPECT_THAT(
        found(boot),
        ElementsAre(
            "warning deadline-too-short: the deadline of 59s may pass, and a "
            "reboot be requested, with every stage within its limit: the limits "
            "on this way add up to 1min: \"a\" 30s -> \"b\" 30s; lower limits, or raise the "
            "deadline"));
    boot.deadline = 60;
    EXPECT_THAT(found(boot),
                ElementsAre(HasSubstr("add up to 1min, and what ends with the deadline "
                                      "is too late: ")));
    boot.deadline = 60.001;
    EXPECT_THAT(found(boot), IsEmpty());

    boot.deadline = 59.001;
    part(boot.stages[0]).autoComplete = 29;
    EXPECT_THAT(found(boot), IsEmpty()) << "it takes no longer then";
}

TEST(Check, TheDeadlineIsTheLimitOfStagesThatHaveNone) {
    PlanClass boot = steps({limited(step("a", 1), forever), limited(step("b", 1, {"a"}), 30)});
    boot.deadline = 30.001;

    EXPECT_THAT(found(boot), IsEmpty());
    boot.deadline = 29;
    EXPECT_THAT(found(boot), ElementsAre(HasSubstr("30s without those that are infinity: ")));
}

TEST(Check, SaysWhatBecomesOfWhoNeverReports) {
    PlanClass boot = steps({step("a", forever)});
    EXPECT_THAT(found(boot), IsEmpty()) << "it is passed over";
    EXPECT_THAT(found(boot, true),
                ElementsAre("note never-reports: \"a\" never reports: stage \"a\" is out of its "
                            "limit after 1min 30s, and then the progression goes on without it"));

    boot = steps({critical(step("a", forever))});
    EXPECT_THAT(found(boot), ElementsAre(AllOf(HasSubstr("warning never-reports"),
                                               HasSubstr("a reboot is requested"))));
    part(boot.stages[0]).autoComplete = 10;
    EXPECT_THAT(found(boot, true), IsEmpty());

    boot = steps({limited(step("a", forever), forever)});
    boot.deadline = 300;
    EXPECT_THAT(found(boot), ElementsAre(HasSubstr("stage \"a\", which has no limit, lasts until "
                                                   "the deadline of 5min")));
}

TEST(Check, ACriticalStageWithoutAnyEndOfTheWaitIsAnError) {
    PlanClass boot = steps({critical(step("a", 1)), critical(step("b", 1)), step("c", 1)});
    boot.onTimeout = OnTimeout::wait;

    EXPECT_THAT(found(boot),
                ElementsAre("error waits-forever: on-timeout is wait, and the plan has no "
                            "deadline: should a critical stage not be done, nothing would ever "
                            "end the wait (\"a\", \"b\"); give a deadline, or let on-timeout be "
                            "reboot or continue"));
    boot.deadline = 1000;
    EXPECT_THAT(found(boot), IsEmpty());
    boot.deadline = forever;
    for (const OnTimeout ends : {OnTimeout::reboot, OnTimeout::proceed}) {
        boot.onTimeout = ends;
        EXPECT_THAT(found(boot), IsEmpty());
    }
    boot.onTimeout = OnTimeout::wait;
    for (PlanStage& stage : boot.stages) part(stage).autoComplete = 60;
    EXPECT_THAT(found(boot), IsEmpty()) << "everybody is auto-completed";
}

TEST(Check, AnUnlimitedStageWithoutADeadlineMayWaitForever) {
    PlanClass boot = steps({limited(step("a", 1), forever)});
    EXPECT_THAT(found(boot), IsEmpty()) << "simulated, and reports";

    part(boot.stages[0]).kind = PlanParticipant::Kind::external;
    EXPECT_THAT(found(boot),
                ElementsAre("error waits-forever: stage \"a\" has no limit, and the plan has "
                            "no deadline: should \"a\" not report, nothing would ever end the "
                            "wait; give one of them, or auto-complete \"a\""));
    part(boot.stages[0]).limit = 1e6;
    EXPECT_THAT(found(boot), IsEmpty());

    boot = steps({limited(step("a", forever), forever)});
    EXPECT_THAT(found(boot), ElementsAre(HasSubstr("waits-forever")));
}

TEST(Check, NamesFromOutsideArePrintable) {
    const std::string nasty = "a\x1b[31m\n\"";
    for (const std::string& line : found(held(
             steps({critical(step(nasty, 1, {nasty})), step("b\r", 1, {nasty, "c\x7f"})}), "\x9b")))
        for (const char c : line)
            EXPECT_TRUE(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f) << line;
}

TEST(Check, ALongChainIsCheckedWithoutEnd) {
    constexpr std::size_t many = 20000;
    std::vector<PlanStage> stages;
    for (std::size_t s = 0; s < many; ++s)
        stages.push_back(step("s" + std::to_string(s), 1,
                              s == 0 ? std::vector<std::string>{}
                                     : std::vector<std::string>{"s" + std::to_string(s - 1)}));
    PlanClass boot = steps(std::move(stages));

    EXPECT_THAT(found(boot, true), IsEmpty());

    boot.stages.front().after.push_back({"s19999", {}});
    EXPECT_THAT(found(boot),
                ElementsAre(AllOf(HasSubstr("\"s0\" -> \"s19999\" -> \"s19998\""),
                                  HasSubstr("(19989 more)"), HasSubstr("-> \"s1\" -> \"s0\""))));

    boot.stages.front().after.front().stage = "gone";
    boot.stages.back().participants.front().critical = true;
    EXPECT_THAT(found(boot, true), SizeIs(2 + 100 + 1)) << "missing, never starts, and the notes";
}

TEST(Check, EveryRuleThatIsFoundIsDeclared) {
    std::set<std::string_view> names;
    for (const CheckRule& rule : checkRules()) {
        EXPECT_TRUE(names.insert(rule.name).second);
        EXPECT_FALSE(rule.summary.empty());
    }
    EXPECT_TRUE(std::is_sorted(checkRules().begin(), checkRules().end(),
                               [](const auto& a, const auto& b) { return a.name < b.name; }));
}

TEST(Check, CarriesTheFileAndGoesByPlaces) {
    PlanClass boot = steps({step("a", 1), step("b", 1)});
    boot.stages[0].after.push_back({"y", {9, 1}});
    boot.stages[1].after.push_back({"x", {2, 7}});
    const Plan plan = planOf({boot});

    const std::vector<Diagnostic> diagnostics = check(plan).diagnostics;

    ASSERT_THAT(diagnostics, SizeIs(2));
    EXPECT_EQ(diagnostics[0].place, (Place{2, 7}));
    EXPECT_EQ(diagnostics[1].place, (Place{9, 1}));
    EXPECT_EQ(diagnostics[0].file, "plan.yaml");
    EXPECT_EQ(count(diagnostics, Diagnostic::Severity::error), 2u);
}

}  // namespace
}  // namespace Host
