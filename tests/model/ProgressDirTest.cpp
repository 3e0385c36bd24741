#include "model/ProgressDir.h"

#include "runtime/Dir.h"
#include "tests/model/Told.h"

namespace {

using ModelTest::Lines;
using Orv::make;
using Orv::Name;
using Orv::Ptr;
using Stage::Progress;
using Stage::ProgressDir;

class Listener final : public ProgressDir::NotifieeConst {
  public:
    Lines told;
    void onProgress(Name instance) override { told.push_back("progress " + instance.str()); }
};

class ProgressDirEntity : public testing::Test {
  protected:
    ProgressDirEntity() { listener.notifierIs(dir); }

    Ptr<ProgressDir> dir = make<ProgressDir>("progress");
    Listener listener;
    Lines& told = listener.told;
};

TEST_F(ProgressDirEntity, MakesOneRecordPerInstance) {
    ModelTest::expectMembers<Progress>(
        *dir, dir->progress(), told, "progress",
        {[&](Name instance) { return dir->progress(instance); },
         [&](Name instance) { return dir->progressIs(instance); },
         [&](Name instance) { dir->progressDel(instance); }, [&] { dir->progressDelAll(); }});
}

TEST_F(ProgressDirEntity, LosesItsMembersWhenItsDirectoryDropsIt) {
    const Ptr<Orv::Dir> above = make<Orv::Dir>();
    above->entryIs(dir);
    const Ptr<Progress> held = dir->progressIs("main");
    dir->progressIs("spare");
    told.clear();

    above->entryDel("progress");

    EXPECT_THAT(told, testing::UnorderedElementsAre("progress main", "progress spare"));
    EXPECT_TRUE(dir->progress().empty());
    EXPECT_EQ(held->parent(), nullptr);
}

TEST_F(ProgressDirEntity, AMemberThatIsHeldKnowsNoParentOnceItsOwnerIsGone) {
    const Ptr<Progress> held = dir->progressIs("main");

    listener.notifierIs(nullptr);
    dir = nullptr;

    EXPECT_EQ(held->parent(), nullptr);
}

}  // namespace
