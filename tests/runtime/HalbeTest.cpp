#include "runtime/Halbe.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "runtime/ActivityManager.h"
#include "runtime/Environment.h"
#include "tests/runtime/World.h"

namespace {

using Halbe::HalbeInfo;
using Orv::make;
using Orv::Ptr;
using Orv::String;
using RuntimeTest::Lines;

TEST(HalbeInfo, HoldsWhatItWasMadeFromAndNoTimeOutYet) {
    const auto info = make<HalbeInfo>("watchdog", 2u, false);

    EXPECT_EQ(info->name(), "watchdog");
    EXPECT_EQ(info->slot(), 2u);
    EXPECT_FALSE(info->flag());
    EXPECT_EQ(info->watchdogTimeout(), "");
}

TEST(HalbeInfo, HoldsTheTimeOutThatIsSet) {
    const auto info = make<HalbeInfo>("watchdog", 2u, false);

    info->watchdogTimeoutIs("300");
    info->watchdogTimeoutIs("600");

    EXPECT_EQ(info->watchdogTimeout(), "600");
}

// A host that configures a real watchdog.
class HostInfo final : public HalbeInfo {
  public:
    HostInfo(Lines& log, String name, unsigned slot, bool flag)
        : HalbeInfo(std::move(name), slot, flag), log_(log) {}
    ~HostInfo() override { log_.push_back("dropped"); }
    void watchdogTimeoutIs(String seconds) override {
        HalbeInfo::watchdogTimeoutIs(seconds);
        log_.push_back(name().str() + "/" + std::to_string(slot()) + "/" +
                       (flag() ? "true" : "false") + "/" + watchdogTimeout().str());
    }

  private:
    Lines& log_;
};

class Host final : public Orv::Environment {
  public:
    Lines log;
    bool has = true;
    Ptr<HalbeInfo> halbeInfo(const String& name, unsigned slot, bool flag) override {
        return has ? make<HostInfo>(log, name, slot, flag) : Ptr<HostInfo>();
    }
};

TEST(HalbeProvider, ARecordOfTheHostSeesTheTimeOutAndIsDropped) {
    Orv::VirtualTime time;
    Host host;
    Orv::ActivityManager manager(time, host);
    const Orv::ActivityScope scope(manager);

    Orv::activityManager().environment().halbeInfo("watchdog", 7, true)->watchdogTimeoutIs("300");

    EXPECT_EQ(host.log, (Lines{"watchdog/7/true/300", "dropped"}));
}

TEST(HalbeProvider, MayHaveNone) {
    Host host;
    host.has = false;

    EXPECT_FALSE(host.halbeInfo("watchdog", 7, true));
}

}  // namespace
