#include "host/session/Session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "host/JsonLines.h"
#include "host/Outcome.h"
#include "tests/host/Plans.h"

namespace Host {
namespace {

using testing::ElementsAre;

// Reports after a fixed time, and notes who started when.
class FixedTime final : public Performer {
  public:
    void start(Session& session, const Part& part) override {
        started.push_back(part.stage->name + ":" + part.participant->name + "@" +
                          std::to_string(static_cast<int>(session.time())));
        const Takes takes = part.participant->takes.value_or(assumedTakes);
        if (takes.kind == Takes::Kind::never) return;
        if (takes.a == 0.0)
            session.report(part);
        else
            session.scheduleReport(session.time() + takes.a, part);
    }

    std::vector<std::string> started;
};

PlanClass threeStages() {
    return stageClass("boot", {stage("power", {}, {takes("psu", 2), takes("fans", 0)}),
                               stage("disks", {"power"}, {takes("shelf", 3)}),
                               stage("web", {"disks"}, {takes("nginx", 0)})});
}

struct Ran {
    std::vector<std::string> started;
    std::string observed;
    std::string recorded;
    double end;
    InstanceOutcome::State state;
};

Ran ran(const Plan& plan, double until = Session::never) {
    std::ostringstream observed;
    std::ostringstream recorded;
    JsonLines view(observed);
    FixedTime performer;
    Session session(plan, performer, view, &recorded);
    session.advance(until);
    const auto outcome = outcomes(session.tree()).front();
    session.finish();
    return {performer.started, observed.str(), recorded.str(), session.time(), outcome.state};
}

TEST(Session, BringsAPlanUp) {
    const Ran run = ran(planOf({threeStages()}));

    EXPECT_THAT(run.started,
                ElementsAre("power:psu@0", "power:fans@0", "disks:shelf@2", "web:nginx@5"));
    EXPECT_EQ(run.state, InstanceOutcome::State::complete);
    EXPECT_EQ(run.end, 5.0);
}

TEST(Session, StopsAtTheTimeThatItIsGiven) {
    const Ran run = ran(planOf({threeStages()}), 2.0);

    EXPECT_THAT(run.started, ElementsAre("power:psu@0", "power:fans@0", "disks:shelf@2"));
    EXPECT_EQ(run.state, InstanceOutcome::State::running);
    EXPECT_EQ(run.end, 2.0);
}

TEST(Session, StartsInstancesAtTheirTimes) {
    PlanClass boot = threeStages();
    boot.instances = {{"left", {}, 0.0, false}, {"right", {}, 1.5, false}};

    const Ran run = ran(planOf({boot}), 1.5);

    EXPECT_THAT(run.started,
                ElementsAre("power:psu@0", "power:fans@0", "power:psu@1", "power:fans@1"));
}

// Reports that come at the time at which their stages start, and others, and stages that time out.
TEST(Session, ItsRecordReplaysToTheSameObservations) {
    PlanClass boot = threeStages();
    boot.stages[1].participants[0].limit = 1.0;
    boot.stages.push_back(stage("early", {}, {takes("probe", 0)}));
    boot.stages.push_back(stage("late", {"early"}, {takes("probe", 0), takes("psu", 7)}));
    for (const double until : {0.0, 2.0, 2.5, 5.0, Session::never}) {
        const Ran run = ran(planOf({boot}), until);

        std::istringstream journal(run.recorded);
        std::ostringstream replayed;
        replay(journal, replayed);

        EXPECT_EQ(replayed.str(), run.observed) << "until " << until;
    }
}

}  // namespace
}  // namespace Host
