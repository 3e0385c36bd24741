#include "tests/host/Journals.h"

#include <fmt/format.h>

#include <sstream>

#include "host/Journal.h"
#include "host/Replay.h"

namespace Host {

std::string text(const Lines& lines) {
    std::string joined;
    for (const std::string& line : lines) joined += line + "\n";
    return joined;
}

std::string create(const std::string& path, const std::string& type) {
    return fmt::format(R"({{"op":"create","path":"{}","type":"{}"}})", path, type);
}

Lines bootClass() {
    return {
        create("/stage/boot", "Orv::Dir"),
        create("/stage/boot/config", "Orv::Dir"),
        create("/stage/boot/config/config", "Stage::Config"),
        R"({"op":"set","path":"/stage/boot/config/config","attr":"stageClass","value":"boot"})",
        R"({"op":"set","path":"/stage/boot/config/config","attr":"application","value":"Boot"})",
        create("/stage/boot/status", "Stage::Status"),
        create("/stage/boot/completionstatus", "Stage::CompletionStatusDir"),
        create("/stage/boot/progress", "Stage::ProgressDir"),
        create("/stage/boot/log", "Stage::Log"),
        create("/input/boot", "Orv::Dir"),
        create("/agentstatus/boot", "Orv::Dir"),
        create("/enable/boot", "Stage::EnabledConfig")};
}

Lines agent(const std::string& agent, const std::string& stage, double timeout) {
    return {create("/input/boot/" + agent, "Stage::AgentConfig"),
            fmt::format(R"({{"op":"set","path":"/input/boot/{}","attr":"event","key":"{}"}})",
                        agent, stage),
            fmt::format(
                R"({{"op":"set","path":"/input/boot/{}/event/{}","attr":"timeout","value":{}}})",
                agent, stage, timeout),
            create("/agentstatus/boot/" + agent, "Stage::AgentStatus")};
}

std::string enable(const std::string& instance) {
    return fmt::format(
        R"({{"op":"set","path":"/enable/boot","attr":"enabled","key":"{}","value":true}})",
        instance);
}

std::string report(double at, const std::string& agent, const std::string& stage,
                   const std::string& instance) {
    return fmt::format(R"({{"at":{},"op":"set","path":"/agentstatus/boot/{}","attr":"complete",)"
                       R"("key":{{"agent":"{}","stage":"{}","instance":"{}"}},"value":true}})",
                       at, agent, agent, stage, instance);
}

Lines operator+(Lines a, const Lines& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Lines operator+(Lines a, const std::string& line) {
    a.push_back(line);
    return a;
}

Lines replayed(const Lines& journal) {
    std::istringstream in(text(journal));
    std::ostringstream out;
    std::string error;
    try {
        replay(in, out);
    } catch (const JournalError& e) {
        error = fmt::format("{}: {}", e.line(), e.what());
    }
    Lines lines;
    std::istringstream written(out.str());
    for (std::string line; std::getline(written, line);)
        if (line.find(R"("event": "state")") == std::string::npos) lines.push_back(line);
    if (!error.empty()) lines.push_back(error);
    return lines;
}

std::string replayedText(const std::string& journal) {
    std::istringstream in(journal);
    std::ostringstream out;
    replay(in, out);
    return out.str();
}

}  // namespace Host
