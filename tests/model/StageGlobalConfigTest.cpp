#include "model/StageGlobalConfig.h"

#include "tests/model/Told.h"

namespace {

using ModelTest::expectFlags;
using ModelTest::Lines;
using Orv::make;
using Orv::Ptr;
using Stage::StageGlobalConfig;
using Stage::StageInfo;

class Listener final : public StageGlobalConfig::NotifieeConst {
  public:
    Lines told;
    void onDoNotStartStage(StageInfo stage) override {
        told.push_back("doNotStartStage " + stage.stageClass.str() + ":" + stage.stage.str());
    }
};

TEST(StageGlobalConfigEntity, HeldStagesTellPerClassAndStage) {
    const Ptr<StageGlobalConfig> config = make<StageGlobalConfig>("global");
    Listener listener;
    listener.notifierIs(config);

    expectFlags<StageInfo>(
        config->doNotStartStage(), listener.told, "doNotStartStage",
        {[&](const StageInfo& stage) { return config->doNotStartStage(stage); },
         [&](StageInfo stage, bool held) { config->doNotStartStageIs(stage, held); },
         [&](StageInfo stage) { config->doNotStartStageDel(stage); },
         [&] { config->doNotStartStageDelAll(); }},
        {{{"boot", "mount"}, "boot:mount"},
         {{"net", "mount"}, "net:mount"},
         {{"boot", "probe"}, "boot:probe"}});
}

}  // namespace
