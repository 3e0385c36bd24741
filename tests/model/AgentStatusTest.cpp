#include "model/AgentStatus.h"

#include "tests/model/Told.h"

namespace {

using ModelTest::expectFlags;
using ModelTest::keysOf;
using ModelTest::Lines;
using Orv::make;
using Orv::Ptr;
using Orv::String;
using Stage::AgentStatus;
using Stage::AgentStatusKey;
using Stage::StageRequest;

std::string text(const AgentStatusKey& key) {
    return key.agent.str() + ":" + key.stage.str() + ":" + key.instance.str();
}

class Listener final : public AgentStatus::NotifieeConst {
  public:
    Lines told;
    void onComplete(AgentStatusKey key) override { told.push_back("complete " + text(key)); }
    void onStageRequest(String stage) override { told.push_back("stageRequest " + stage.str()); }
};

class AgentStatusEntity : public testing::Test {
  protected:
    AgentStatusEntity() { listener.notifierIs(agent); }

    Ptr<AgentStatus> agent = make<AgentStatus>("disk");
    Listener listener;
    Lines& told = listener.told;
};

TEST_F(AgentStatusEntity, IsNamedAfterItsAgent) { EXPECT_EQ(agent->name(), "disk"); }

TEST_F(AgentStatusEntity, ReportsTellPerKey) {
    expectFlags<AgentStatusKey>(
        agent->complete(), told, "complete",
        {[&](const AgentStatusKey& key) { return agent->complete(key); },
         [&](AgentStatusKey key, bool value) { agent->completeIs(key, value); },
         [&](AgentStatusKey key) { agent->completeDel(key); }, [&] { agent->completeDelAll(); }},
        {{{"disk", "mount", "main"}, "disk:mount:main"},
         {{"disk", "mount", "spare"}, "disk:mount:spare"},
         {{"disk", "probe", "main"}, "disk:probe:main"}});
}

TEST_F(AgentStatusEntity, AReportInOneInstanceSaysNothingOfAnother) {
    agent->completeIs({"disk", "mount", "main"}, true);

    EXPECT_TRUE(agent->complete({"disk", "mount", "main"}));
    EXPECT_FALSE(agent->complete({"disk", "mount", "spare"}));
}

TEST_F(AgentStatusEntity, StageRequestsTellPerStage) {
    const StageRequest request{"disk", "mount", 30};

    agent->stageRequestIs("mount", request);
    EXPECT_EQ(told, Lines({"stageRequest mount"}));
    EXPECT_EQ(agent->stageRequest("mount"), request);

    agent->stageRequestIs("mount", {"disk", "mount", 30});
    EXPECT_EQ(told.size(), 1u) << "the same request again";

    agent->stageRequestIs("mount", {"disk", "mount", 31});
    EXPECT_EQ(told.size(), 2u) << "another limit";

    agent->stageRequestIs("probe", {"disk", "probe", 5});
    agent->stageRequestDel("absent");
    agent->stageRequestDel("mount");
    agent->stageRequestDel("mount");
    EXPECT_EQ(told, Lines({"stageRequest mount", "stageRequest mount", "stageRequest probe",
                           "stageRequest mount"}));
    EXPECT_EQ(keysOf(agent->stageRequest()), Lines({"probe"}));

    agent->stageRequestIs("join", {"disk", "join", 1});
    told.clear();
    agent->stageRequestDelAll();
    EXPECT_THAT(told, testing::UnorderedElementsAre("stageRequest probe", "stageRequest join"));
    EXPECT_TRUE(agent->stageRequest().empty());
    agent->stageRequestDelAll();
    EXPECT_EQ(told.size(), 2u);
}

TEST_F(AgentStatusEntity, ARequestWithALimitThatIsNoNumberIsAChangeWheneverItIsSet) {
    agent->stageRequestIs("mount", {"disk", "mount", std::nan("")});
    agent->stageRequestIs("mount", {"disk", "mount", std::nan("")});

    EXPECT_EQ(told, Lines({"stageRequest mount", "stageRequest mount"}));
}

TEST_F(AgentStatusEntity, AMissingRequestReadsAsTheEmptyOne) {
    EXPECT_EQ(agent->stageRequest("mount"), StageRequest());
    EXPECT_TRUE(!agent->stageRequest("mount"));
}

TEST_F(AgentStatusEntity, AnEmptyRequestCountsAsAbsentAlthoughItsKeyIsThere) {
    agent->stageRequestIs("mount", {"", "", 0.0});

    EXPECT_TRUE(agent->stageRequest().contains("mount"));
    EXPECT_TRUE(!agent->stageRequest("mount"));
    EXPECT_EQ(told, Lines({"stageRequest mount"}));
}

TEST_F(AgentStatusEntity, RequestsAreObservedUnderTheirStage) {
    ModelTest::Observer observer;

    agent->stageRequestIs("mount", {"disk", "mount", 1});
    agent->stageRequestDel("mount");

    EXPECT_EQ(observer.told, Lines({"stageRequest mount", "stageRequest mount"}));
}

}  // namespace
