#include "model/Config.h"

#include "tests/model/Told.h"

namespace {

using ModelTest::expectScalar;
using ModelTest::expectSeconds;
using ModelTest::Lines;
using Orv::make;
using Orv::Ptr;
using Orv::String;
using Stage::Config;
using ResetMode = Stage::FatalError::ResetMode;

class Listener final : public Config::NotifieeConst {
  public:
    Lines told;
    void onStageClass() override { told.push_back("stageClass"); }
    void onApplication() override { told.push_back("application"); }
    void onAgentDir() override { told.push_back("agentDir"); }
    void onStageTimeoutIsFatal() override { told.push_back("stageTimeoutIsFatal"); }
    void onContinueOnTimeout() override { told.push_back("continueOnTimeout"); }
    void onGlobalStageCompletionTimeout() override {
        told.push_back("globalStageCompletionTimeout");
    }
    void onResetMode() override { told.push_back("resetMode"); }
    void onReloadCauseDesc() override { told.push_back("reloadCauseDesc"); }
};

class ConfigEntity : public testing::Test {
  protected:
    ConfigEntity() { listener.notifierIs(config); }

    Ptr<Config> config = make<Config>("config");
    Listener listener;
    Lines& told = listener.told;
};

TEST_F(ConfigEntity, StandsUnderTheNameThatItWasMadeWith) {
    EXPECT_EQ(config->key(), "config");
    EXPECT_EQ(config->name(), "config");
}

TEST_F(ConfigEntity, EveryAttributeTellsOncePerChange) {
    expectScalar(*config, told, "stageClass", &Config::stageClass, &Config::stageClassIs, String(),
                 String("boot"));
    expectScalar(*config, told, "application", &Config::application, &Config::applicationIs,
                 String(), String("Boot"));
    expectScalar(*config, told, "agentDir", &Config::agentDir, &Config::agentDirIs, Ptr<Orv::Dir>(),
                 make<Orv::Dir>());
    expectScalar(*config, told, "stageTimeoutIsFatal", &Config::stageTimeoutIsFatal,
                 &Config::stageTimeoutIsFatalIs, false, true);
    expectScalar(*config, told, "continueOnTimeout", &Config::continueOnTimeout,
                 &Config::continueOnTimeoutIs, false, true);
    expectScalar(*config, told, "resetMode", &Config::resetMode, &Config::resetModeIs,
                 ResetMode::none, ResetMode::powerCycle);
    expectScalar(*config, told, "reloadCauseDesc", &Config::reloadCauseDesc,
                 &Config::reloadCauseDescIs, String(), String("It stopped."));
}

TEST_F(ConfigEntity, TheDeadlineTakesAnyNumber) {
    expectSeconds(*config, told, "globalStageCompletionTimeout",
                  &Config::globalStageCompletionTimeout, &Config::globalStageCompletionTimeoutIs);
}

TEST_F(ConfigEntity, AnotherDirectoryOfTheSameNameIsAChange) {
    const Ptr<Orv::Dir> one = make<Orv::Dir>("agents");
    const Ptr<Orv::Dir> other = make<Orv::Dir>("agents");

    config->agentDirIs(one);
    config->agentDirIs(other);
    config->agentDirIs(other);

    EXPECT_EQ(told, Lines({"agentDir", "agentDir"}));
}

}  // namespace
