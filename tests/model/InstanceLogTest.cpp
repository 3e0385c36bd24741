#include "model/InstanceLog.h"

#include "tests/model/Told.h"

namespace {

using ModelTest::Lines;
using Orv::make;
using Orv::Ptr;
using Stage::InstanceLog;
using Stage::LogEntry;

class Listener final : public InstanceLog::NotifieeConst {
  public:
    Lines last;
    void onLog() override { last.push_back(notifier()->log().back().message.str()); }
};

TEST(InstanceLogEntity, KeepsItsEntriesInTheOrderInWhichTheyCame) {
    const Ptr<InstanceLog> log = make<InstanceLog>("main");

    log->logEnq({1.5, "first"});
    log->logEnq({1.5, "second"});
    log->logEnq({0.5, "an earlier time"});

    EXPECT_EQ(log->log(),
              (std::vector<LogEntry>{{1.5, "first"}, {1.5, "second"}, {0.5, "an earlier time"}}));
    EXPECT_EQ(log->name(), "main");
}

TEST(InstanceLogEntity, TellsOfEveryEntryOnceItStands) {
    const Ptr<InstanceLog> log = make<InstanceLog>("main");
    Listener listener;
    listener.notifierIs(log);
    ModelTest::Observer observer;

    log->logEnq({1, "line"});
    log->logEnq({1, "line"});

    EXPECT_EQ(listener.last, Lines({"line", "line"}));
    EXPECT_EQ(observer.told, Lines({"log", "log"}));
}

TEST(LogEntry, IsEqualWhenTimeAndMessageAre) {
    EXPECT_EQ((LogEntry{1, "a"}), (LogEntry{1, "a"}));
    EXPECT_NE((LogEntry{1, "a"}), (LogEntry{2, "a"}));
    EXPECT_NE((LogEntry{1, "a"}), (LogEntry{1, "b"}));
    EXPECT_EQ(LogEntry(), (LogEntry{0.0, ""}));
}

}  // namespace
