#include "model/CompletionStatus.h"

#include "tests/model/Told.h"

namespace {

using ModelTest::Lines;
using Stage::CompletionStatus;

class Listener final : public CompletionStatus::NotifieeConst {
  public:
    Lines told;
    void onComplete() override { told.push_back("complete"); }
};

TEST(CompletionStatusEntity, CompleteTellsOncePerChange) {
    const Orv::Ptr<CompletionStatus> record = Orv::make<CompletionStatus>("main");
    Listener listener;
    listener.notifierIs(record);

    ModelTest::expectScalar(*record, listener.told, "complete", &CompletionStatus::complete,
                            &CompletionStatus::completeIs, false, true);
    EXPECT_EQ(record->name(), "main");
}

}  // namespace
