#include "model/Progress.h"

#include "tests/model/Told.h"

namespace {

using ModelTest::Lines;
using Orv::String;
using Stage::Progress;

class Listener final : public Progress::NotifieeConst {
  public:
    Lines told;
    void onStage(String stage) override { told.push_back("stage " + stage.str()); }
};

TEST(ProgressEntity, StagesTellPerName) {
    const Orv::Ptr<Progress> progress = Orv::make<Progress>("main");
    Listener listener;
    listener.notifierIs(progress);

    ModelTest::expectFlags<String>(
        progress->stage(), listener.told, "stage",
        {[&](const String& s) { return progress->stage(s); },
         [&](String s, bool started) { progress->stageIs(s, started); },
         [&](String s) { progress->stageDel(s); }, [&] { progress->stageDelAll(); }},
        ModelTest::threeNames<String>());
    EXPECT_EQ(progress->name(), "main");
}

}  // namespace
