#include "model/Log.h"

#include "runtime/Dir.h"
#include "tests/model/Told.h"

namespace {

using ModelTest::Lines;
using Orv::make;
using Orv::Name;
using Orv::Ptr;
using Stage::InstanceLog;
using Stage::Log;

class Listener final : public Log::NotifieeConst {
  public:
    Lines told;
    void onInstanceLog(Name instance) override { told.push_back("instanceLog " + instance.str()); }
};

class LogEntity : public testing::Test {
  protected:
    LogEntity() { listener.notifierIs(dir); }

    Ptr<Log> dir = make<Log>("log");
    Listener listener;
    Lines& told = listener.told;
};

TEST_F(LogEntity, MakesOneLogPerInstance) {
    ModelTest::expectMembers<InstanceLog>(
        *dir, dir->instanceLog(), told, "instanceLog",
        {[&](Name instance) { return dir->instanceLog(instance); },
         [&](Name instance) { return dir->instanceLogIs(instance); },
         [&](Name instance) { dir->instanceLogDel(instance); }, [&] { dir->instanceLogDelAll(); }});
}

TEST_F(LogEntity, LosesItsMembersWhenItsDirectoryDropsIt) {
    const Ptr<Orv::Dir> above = make<Orv::Dir>();
    above->entryIs(dir);
    const Ptr<InstanceLog> held = dir->instanceLogIs("main");
    dir->instanceLogIs("spare");
    told.clear();

    above->entryDel("log");

    EXPECT_THAT(told, testing::UnorderedElementsAre("instanceLog main", "instanceLog spare"));
    EXPECT_TRUE(dir->instanceLog().empty());
    EXPECT_EQ(held->parent(), nullptr);
}

TEST_F(LogEntity, AMemberThatIsHeldKnowsNoParentOnceItsOwnerIsGone) {
    const Ptr<InstanceLog> held = dir->instanceLogIs("main");

    listener.notifierIs(nullptr);
    dir = nullptr;

    EXPECT_EQ(held->parent(), nullptr);
}

}  // namespace
