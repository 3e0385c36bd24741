// A host in small: one class of one stage, whose one agent reports in time.
#include <iostream>

#include "StageMgr/StageMgrStageClassDirSm.h"
#include "model/AgentConfig.h"
#include "model/AgentStatus.h"
#include "model/CompletionStatusDir.h"
#include "model/EnabledConfig.h"
#include "model/FatalError.h"
#include "model/StageGlobalConfig.h"
#include "model/Types.h"
#include "runtime/ActivityManager.h"
#include "runtime/Dir.h"

int main() {
    Stage::registerModelTypes();
    const auto stage = Orv::make<Orv::Dir>("stage"), input = Orv::make<Orv::Dir>("input"),
               reports = Orv::make<Orv::Dir>("agentstatus"), enable = Orv::make<Orv::Dir>("enable");
    const auto manager = Stage::stageMgrStageClassDirSmFactory(
        stage, input, reports, enable, Orv::make<Stage::StageGlobalConfig>("global"),
        Orv::make<Stage::FatalError>("fatalerror"));

    const auto boot = stage->subdirIs("boot");
    boot->subdirIs("config")->entryIs("config", "Stage::Config");
    boot->entryIs("status", "Stage::Status");
    boot->entryIs("completionstatus", "Stage::CompletionStatusDir");
    boot->entryIs("progress", "Stage::ProgressDir");
    boot->entryIs("log", "Stage::Log");
    const auto agent = Orv::make<Stage::AgentConfig>("net");
    agent->eventIs("up", "net")->timeoutIs(30);
    input->subdirIs("boot")->entryIs(agent);
    const auto report = Orv::make<Stage::AgentStatus>("net");
    reports->subdirIs("boot")->entryIs(report);
    const auto enabled = Orv::make<Stage::EnabledConfig>("boot");
    enabled->enabledIs("main", true);
    enable->entryIs(enabled);

    Orv::activityManager().runUntil(10);
    report->completeIs({"net", "up", "main"}, true);
    Orv::activityManager().runUntilIdle();

    const auto done =
        boot->entityPtr<Stage::CompletionStatusDir>("completionstatus")->status("main");
    const bool complete = done && done->complete();
    std::cout << "boot is " << (complete ? "complete" : "not complete") << "\n";
    return complete ? 0 : 1;
}
