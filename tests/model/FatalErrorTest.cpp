#include "model/FatalError.h"

#include <sstream>

#include "tests/model/Told.h"

namespace {

using ModelTest::expectScalar;
using ModelTest::Lines;
using Orv::String;
using Stage::FatalError;
using ResetMode = FatalError::ResetMode;

class Listener final : public FatalError::NotifieeConst {
  public:
    Lines told;
    void onRequestReboot() override { told.push_back("requestReboot"); }
    void onRebootReason() override { told.push_back("rebootReason"); }
    void onReloadCauseDesc() override { told.push_back("reloadCauseDesc"); }
};

TEST(FatalErrorEntity, EveryAttributeTellsOncePerChange) {
    const Orv::Ptr<FatalError> error = Orv::make<FatalError>("fatalerror");
    Listener listener;
    listener.notifierIs(error);

    expectScalar(*error, listener.told, "requestReboot", &FatalError::requestReboot,
                 &FatalError::requestRebootIs, ResetMode::none, ResetMode::cold);
    expectScalar(*error, listener.told, "rebootReason", &FatalError::rebootReason,
                 &FatalError::rebootReasonIs, String(), String("it hung"));
    expectScalar(*error, listener.told, "reloadCauseDesc", &FatalError::reloadCauseDesc,
                 &FatalError::reloadCauseDescIs, String(), String("It hung."));
}

TEST(ResetMode, PrintsItsName) {
    const auto printed = [](ResetMode mode) {
        std::ostringstream out;
        out << mode;
        return out.str();
    };

    EXPECT_EQ(printed(ResetMode::none), "none");
    EXPECT_EQ(printed(ResetMode::cold), "cold");
    EXPECT_EQ(printed(ResetMode::warm), "warm");
    EXPECT_EQ(printed(ResetMode::powerCycle), "powerCycle");
}

TEST(ResetMode, NoneIsTheDefault) { EXPECT_EQ(ResetMode(), ResetMode::none); }

}  // namespace
