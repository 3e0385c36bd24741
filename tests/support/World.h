// The world in which tests tell their stories: the manager behind its real entry point, on a
// virtual clock, with what agents and operators do as one-line sentences.
//
//     World world;
//     world.agent("fan").event("early", {.timeout = 30, .critical = true});
//     world.enable("boot");
//
//     world.advance(30);
//
//     EXPECT_EQ(world.messages(), Messages({"app stage early timed out"}));
//
// Nothing here waits for the manager by itself: what a sentence sets off at once has happened when
// it returns; what waits for a turn of the loop, a pass of an instance for example, happens in
// settle() and advance().
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "StageMgr/StageMgrStageClassDirSm.h"
#include "model/AgentConfig.h"
#include "model/AgentStatus.h"
#include "model/CompletionStatusDir.h"
#include "model/Config.h"
#include "model/EnabledConfig.h"
#include "model/FatalError.h"
#include "model/Log.h"
#include "model/ProgressDir.h"
#include "model/StageGlobalConfig.h"
#include "model/Status.h"
#include "runtime/Reactor.h"
#include "runtime/Trace.h"

namespace StageTest {

using Lines = std::vector<std::string>;
using Messages = Lines;

// A limit that no test reaches by accident.
inline constexpr double anHour = 3600;

// How an agent takes part in a stage.
struct EventOptions {
    double timeout = anHour;
    bool critical = false;
    Lines dependsOn = {};
    std::optional<double> autoComplete = {};  // seconds; enables it
    Lines completeIn = {};                    // instances in which the event is complete by itself
};

// What holds for a class.
struct ClassOptions {
    std::optional<std::string> application = {};  // the class's name by default
    double deadline = 0;
    bool timeoutIsFatal = false;
    bool continueOnTimeout = false;
    Stage::FatalError::ResetMode resetMode = Stage::FatalError::ResetMode::cold;
    std::string reloadCause = "Stage progression failed.";
};

// What was asked for in FatalError.
struct Reboot {
    Stage::FatalError::ResetMode mode = Stage::FatalError::ResetMode::none;
    std::string reason;
    std::string cause;
    friend bool operator==(const Reboot&, const Reboot&) = default;
};
std::ostream& operator<<(std::ostream& out, const Reboot& reboot);

// Owns what is still being made.
class Maker final : public Orv::Owner {
  public:
    void leave() { retired_ = true; }
};

struct TraceLine {
    int level;
    std::string unit;
    std::string handler;    // the function's name
    std::string signature;  // in full
    std::string text;       // what follows the signature
};

class StageClass;

// The machine without any stage class: the directories, the system's two entities, the manager, the
// clock, and everything that leaves the manager otherwise than through entities.
class System {
  public:
    enum class Manager { runs, waits };

    // A manager that waits is started by start().
    explicit System(Manager manager = Manager::runs);
    ~System();
    System(const System&) = delete;
    System& operator=(const System&) = delete;

    // Makes the manager on the entities that are there; drops it, and leaves them.
    void start();
    void stop();

    // Makes a class with all its entries, or returns the one that is there.
    StageClass& stageClass(const std::string& name, const ClassOptions& options = {});

    double now() const;
    // Lets everything happen that is due now.
    void settle();
    // Settles, lets the time pass, and settles again.
    void advance(double seconds);
    // The same up to the very moment: what is due then has not happened yet.
    void reach(double seconds);

    // The do-not-start list.
    void doNotStart(const std::string& stageClass, const std::string& stage, bool held = true);
    void doNotStartDel(const std::string& stageClass, const std::string& stage);
    // Somebody else asks for a reboot.
    void rebootIs(Stage::FatalError::ResetMode mode = Stage::FatalError::ResetMode::warm);

    // What reached the world outside, the oldest first.
    const Messages& messages() const;      // texts of the operator messages
    const Lines& identifiers() const;      // their identifiers
    const Lines& refused() const;          // identifiers of those that were not ok to log
    const Lines& watchdog() const;         // limits that the watchdog was given
    const Lines& watchdogRecords() const;  // "name slot flag" of every record that was asked for
    int watchdogRecordsHeld() const;       // how many of them somebody still holds
    const Lines& printed() const;
    const Lines& errors() const;  // exceptions that left a callback or a timer's handler
    Reboot reboot() const;
    void messagesAreOk(bool ok);
    // Whether a watchdog record is to be had.
    void watchdogIsThere(bool there);

    // From now on, everything in the order in which it happens, entities' changes as
    //     /fatalerror/rebootReason = early timed out
    //     /stage/app/status/instStatus[boot] +       (- when it goes)
    //     /stage/app/log/instanceLog/boot/log << app stages started
    //     + /input/app/fan                           (a directory's entry)
    // and what reaches the world outside as "message: ...", "print: ...", "watchdog: ...".
    void observe();
    // What was observed; of these, the lines that contain `part`.
    const Lines& observed() const;
    Lines observed(const std::string& part) const;
    void forgetObserved();
    // Does something once, right when what would be observed next contains `part`: before the
    // manager, or whoever else watches, is told of it.
    void when(const std::string& part, std::function<void()> act);

    // From now on, the lines of trace blocks up to the level. STAGEMGR_TRACED in the environment
    // traces everything from the start, and no test may notice.
    void trace(int level = 9);
    const std::vector<TraceLine>& traced() const;
    // The texts of a level; of these, those that contain `part`.
    Lines traced(int level, const std::string& part = "") const;
    void forgetTraced();

    const Orv::Ptr<Orv::Dir>& root() const { return root_; }
    const Orv::Ptr<Orv::Dir>& stageDir() const { return stageDir_; }
    const Orv::Ptr<Orv::Dir>& inputDir() const { return inputDir_; }
    const Orv::Ptr<Orv::Dir>& agentStatusDir() const { return agentStatusDir_; }
    const Orv::Ptr<Orv::Dir>& enableDir() const { return enableDir_; }
    const Orv::Ptr<Stage::StageGlobalConfig>& globalConfig() const { return globalConfig_; }
    const Orv::Ptr<Stage::FatalError>& fatalError() const { return fatalError_; }
    // Null while stopped.
    const Orv::Ptr<Stage::StageMgrStageClassDirSm>& manager() const { return manager_; }
    std::size_t armedTimers() const;

  private:
    struct Outside;

    std::unique_ptr<Outside> outside_;
    Orv::Ptr<Orv::Dir> root_;
    Orv::Ptr<Orv::Dir> stageDir_;
    Orv::Ptr<Orv::Dir> inputDir_;
    Orv::Ptr<Orv::Dir> agentStatusDir_;
    Orv::Ptr<Orv::Dir> enableDir_;
    Orv::Ptr<Stage::StageGlobalConfig> globalConfig_;
    Orv::Ptr<Stage::FatalError> fatalError_;
    std::map<std::string, std::unique_ptr<StageClass>> classes_;
    Orv::Ptr<Stage::StageMgrStageClassDirSm> manager_;
};

// What one agent does in one class; its entries are made when they are first needed.
class Agent {
  public:
    // Takes part in a stage: the event is added, then its attributes are set one by one.
    Agent& event(const std::string& stage, const EventOptions& options = {});
    // The same for an agent without a registration, whose events are whole when it appears.
    Agent& appears(const std::map<std::string, EventOptions>& events);
    // Takes no longer part in the stage.
    Agent& withdraw(const std::string& stage);
    // Its registration goes.
    Agent& leave();

    // Reports that its part is complete, or that it is not; takes the report back.
    Agent& report(const std::string& stage, const std::string& instance, bool complete = true);
    Agent& withdrawReport(const std::string& stage, const std::string& instance);
    // Asks to take part in a stage; takes the request back.
    Agent& request(const std::string& stage, double timeout = anHour);
    Agent& withdrawRequest(const std::string& stage);
    // Its status goes.
    Agent& fallSilent();

    // Null when there is none.
    Orv::Ptr<Stage::AgentConfig> config() const;
    Orv::Ptr<Stage::AgentStatus> status() const;
    Orv::Ptr<Stage::EventConfig> registered(const std::string& stage) const;

  private:
    friend class StageClass;
    Agent(StageClass& stageClass, std::string name)
        : stageClass_(stageClass), name_(std::move(name)) {}
    // Null when whoever was told of it took it away again.
    Orv::Ptr<Stage::AgentStatus> statusIs();

    StageClass& stageClass_;
    std::string name_;
};

// One class. Entities that are missing read as null.
class StageClass {
  public:
    StageClass(System& system, std::string name, const ClassOptions& options);

    const std::string& className() const { return name_; }

    Agent agent(const std::string& name) { return Agent(*this, name); }

    // Operators.
    void enable(const std::string& instance, bool enabled = true);
    void disable(const std::string& instance);  // the member goes
    void suspend(const std::string& instance, bool suspended = true);
    void suspendDel(const std::string& instance);
    void hold(const std::string& stage, bool held = true);  // on the do-not-start list
    void holdDel(const std::string& stage);

    // The instance's progress log; empty when there is none.
    Lines log(const std::string& instance) const;
    // The same with times: "30 stage early started".
    Lines timedLog(const std::string& instance) const;
    bool instanceComplete(const std::string& instance) const;
    Lines activeStages(const std::string& instance) const;
    Lines pendingEvents(const std::string& instance, const std::string& stage) const;

    // What operators and agents write.
    Orv::Ptr<Orv::Dir> inputDir() const;
    Orv::Ptr<Orv::Dir> agentStatusDir() const;
    Orv::Ptr<Stage::Config> config() const;
    Orv::Ptr<Stage::EnabledConfig> enabledConfig() const;
    // What the manager writes.
    Orv::Ptr<Stage::Status> status() const;
    Orv::Ptr<Stage::CompletionStatusDir> completionStatusDir() const;
    Orv::Ptr<Stage::ProgressDir> progressDir() const;
    Orv::Ptr<Stage::Log> logs() const;
    Orv::Ptr<Stage::StageStatus> stage(const std::string& name) const;
    Orv::Ptr<Stage::EventConfig> event(const std::string& stage, const std::string& agent) const;
    Orv::Ptr<Stage::InstanceStatus> instanceStatus(const std::string& instance) const;
    Orv::Ptr<Stage::CompletionStatus> completionStatus(const std::string& instance) const;
    Orv::Ptr<Stage::Progress> progress(const std::string& instance) const;
    Orv::Ptr<Stage::InstanceLog> instanceLog(const std::string& instance) const;
    Orv::Ptr<Stage::AgentStatusLocal> agentStatusLocal() const;

    // The reactors, looking down from the directory reactor; null when there is none.
    Stage::StageMgr* stageMgr() const;
    Stage::ConfigSm* configSm() const;
    Stage::StatusSm* statusSm() const;
    Stage::InstanceStatusSm* instance(const std::string& instance) const;
    Stage::StageEnableSm* stageEnableSm(const std::string& instance,
                                        const std::string& stage) const;
    Stage::StageSm* stageSm(const std::string& instance, const std::string& stage) const;
    Stage::AutoCompleteSm* autoCompleteSm(const std::string& instance, const std::string& stage,
                                          const std::string& agent) const;

  private:
    template <class T>
    Orv::Ptr<T> entry(const char* name) const;

    System& system_;
    std::string name_;
};

// The usual case: a system with one class.
class World : public System, public StageClass {
  public:
    World() : World("app") {}
    explicit World(const ClassOptions& options) : World("app", options) {}
    explicit World(const char* stageClass, const ClassOptions& options = {},
                   Manager manager = Manager::runs)
        : System(manager), StageClass(*this, stageClass, options) {}
    // Not yet managed: start() begins.
    explicit World(Manager manager) : World("app", {}, manager) {}

    using StageClass::agentStatusDir;
    using StageClass::inputDir;
};

}  // namespace StageTest
