#include "model/EnabledConfig.h"

#include "tests/model/Told.h"

namespace {

using ModelTest::expectFlags;
using ModelTest::Lines;
using ModelTest::threeNames;
using Orv::make;
using Orv::Ptr;
using Orv::String;
using Stage::EnabledConfig;

class Listener final : public EnabledConfig::NotifieeConst {
  public:
    Lines told;
    void onEnabled(String instance) override { told.push_back("enabled " + instance.str()); }
    void onSuspended(String instance) override { told.push_back("suspended " + instance.str()); }
};

TEST(EnabledConfigEntity, InstancesTellPerName) {
    const Ptr<EnabledConfig> config = make<EnabledConfig>("boot");
    Listener listener;
    listener.notifierIs(config);

    expectFlags<String>(
        config->enabled(), listener.told, "enabled",
        {[&](const String& i) { return config->enabled(i); },
         [&](String i, bool value) { config->enabledIs(i, value); },
         [&](String i) { config->enabledDel(i); }, [&] { config->enabledDelAll(); }},
        threeNames<String>());
    expectFlags<String>(
        config->suspended(), listener.told, "suspended",
        {[&](const String& i) { return config->suspended(i); },
         [&](String i, bool value) { config->suspendedIs(i, value); },
         [&](String i) { config->suspendedDel(i); }, [&] { config->suspendedDelAll(); }},
        threeNames<String>());
}

TEST(EnabledConfigEntity, EnablingAndSuspendingAreIndependent) {
    const Ptr<EnabledConfig> config = make<EnabledConfig>("boot");

    config->suspendedIs("main", true);

    EXPECT_FALSE(config->enabled("main"));
    EXPECT_FALSE(config->enabled().contains("main"));
    EXPECT_EQ(config->name(), "boot");
}

}  // namespace
