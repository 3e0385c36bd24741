#include "model/AgentStatusLocal.h"

#include "tests/model/Told.h"

namespace {

using ModelTest::expectFlags;
using ModelTest::Lines;
using Orv::make;
using Orv::Ptr;
using Stage::AgentStatusKey;
using Stage::AgentStatusLocal;

class Listener final : public AgentStatusLocal::NotifieeConst {
  public:
    Lines told;
    void onComplete(AgentStatusKey key) override {
        told.push_back("complete " + key.agent.str() + ":" + key.stage.str() + ":" +
                       key.instance.str());
    }
};

TEST(AgentStatusLocalEntity, NeedsNothingToBeMade) {
    EXPECT_TRUE(make<AgentStatusLocal>()->complete().empty());
}

TEST(AgentStatusLocalEntity, CompletionsTellPerKey) {
    const Ptr<AgentStatusLocal> record = make<AgentStatusLocal>();
    Listener listener;
    listener.notifierIs(record);

    expectFlags<AgentStatusKey>(
        record->complete(), listener.told, "complete",
        {[&](const AgentStatusKey& key) { return record->complete(key); },
         [&](AgentStatusKey key, bool value) { record->completeIs(key, value); },
         [&](AgentStatusKey key) { record->completeDel(key); }, [&] { record->completeDelAll(); }},
        {{{"disk", "mount", "main"}, "disk:mount:main"},
         {{"disk", "mount", "spare"}, "disk:mount:spare"},
         {{"fan", "mount", "main"}, "fan:mount:main"}});
}

}  // namespace
