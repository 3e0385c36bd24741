#include "model/CompletionStatusDir.h"

#include "runtime/Dir.h"
#include "tests/model/Told.h"

namespace {

using ModelTest::Lines;
using Orv::make;
using Orv::Name;
using Orv::Ptr;
using Stage::CompletionStatus;
using Stage::CompletionStatusDir;

class Listener final : public CompletionStatusDir::NotifieeConst {
  public:
    Lines told;
    void onStatus(Name instance) override { told.push_back("status " + instance.str()); }
};

class CompletionStatusDirEntity : public testing::Test {
  protected:
    CompletionStatusDirEntity() { listener.notifierIs(dir); }

    Ptr<CompletionStatusDir> dir = make<CompletionStatusDir>("completionstatus");
    Listener listener;
    Lines& told = listener.told;
};

TEST_F(CompletionStatusDirEntity, MakesOneRecordPerInstance) {
    ModelTest::expectMembers<CompletionStatus>(
        *dir, dir->status(), told, "status",
        {[&](Name instance) { return dir->status(instance); },
         [&](Name instance) { return dir->statusIs(instance); },
         [&](Name instance) { dir->statusDel(instance); }, [&] { dir->statusDelAll(); }});
}

TEST_F(CompletionStatusDirEntity, LosesItsMembersWhenItsDirectoryDropsIt) {
    const Ptr<Orv::Dir> above = make<Orv::Dir>();
    above->entryIs(dir);
    const Ptr<CompletionStatus> held = dir->statusIs("main");
    dir->statusIs("spare");
    told.clear();

    above->entryDel("completionstatus");

    EXPECT_THAT(told, testing::UnorderedElementsAre("status main", "status spare"));
    EXPECT_TRUE(dir->status().empty());
    EXPECT_EQ(held->parent(), nullptr);
}

TEST_F(CompletionStatusDirEntity, AMemberThatIsHeldKnowsNoParentOnceItsOwnerIsGone) {
    const Ptr<CompletionStatus> held = dir->statusIs("main");

    listener.notifierIs(nullptr);
    dir = nullptr;

    EXPECT_EQ(held->parent(), nullptr);
}

}  // namespace
