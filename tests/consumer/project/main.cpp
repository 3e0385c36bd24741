#include <iostream>

#include "StageMgr/StageMgrStageClassDirSm.h"
#include "model/AgentConfig.h"
#include "model/AgentStatus.h"
#include "runtime/ActivityManager.h"

int main() {
    const auto stage = Orv::make<Orv::Dir>("stage"), input = Orv::make<Orv::Dir>("input"),
               reports = Orv::make<Orv::Dir>("agentstatus"), enable = Orv::make<Orv::Dir>("enable");
    const auto manager = Stage::stageMgrStageClassDirSmFactory(
        stage, input, reports, enable, Orv::make<Stage::StageGlobalConfig>("global"),
        Orv::make<Stage::FatalError>("fatalerror"));

    const auto boot = stage->subdirIs("boot");  // the places of the stage class "boot"
    const auto config = Orv::make<Stage::Config>("config");
    config->applicationIs("Boot");
    boot->subdirIs("config")->entryIs(config);
    boot->entryIs("status", "Stage::Status");
    boot->entryIs("completionstatus", "Stage::CompletionStatusDir");
    boot->entryIs("progress", "Stage::ProgressDir");
    boot->entryIs("log", "Stage::Log");
    const auto enabled = Orv::make<Stage::EnabledConfig>("boot");
    enable->entryIs(enabled);
    const auto agents = input->subdirIs("boot"), status = reports->subdirIs("boot");

    const auto disk = Orv::make<Stage::AgentConfig>("disk"),
               web = Orv::make<Stage::AgentConfig>("web");
    disk->eventIs("mount", "disk")->timeoutIs(30);  // seconds
    web->eventIs("serve", "web")->timeoutIs(10);
    web->event("serve")->dependencyIs("mount", true);
    for (const auto& agent : {disk, web}) agents->entryIs(agent);
    const auto report = [&](const char* agent, const char* stageName) {
        const auto reported = Orv::make<Stage::AgentStatus>(agent);
        status->entryIs(reported);
        reported->completeIs({agent, stageName, "main"}, true);
    };

    enabled->enabledIs("main", true);
    Orv::activityManager().runUntil(2.5);  // virtual time, from 0
    report("disk", "mount");
    Orv::activityManager().runUntil(4);
    report("web", "serve");
    Orv::activityManager().runUntilIdle();
    for (const auto& line : boot->entityPtr<Stage::Log>("log")->instanceLog("main")->log())
        std::cout << line.time << " " << line.message << "\n";
}
