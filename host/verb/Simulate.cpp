#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>
#include <thread>

#include "host/HumanView.h"
#include "host/Json.h"
#include "host/Suggest.h"
#include "host/Table.h"
#include "host/Utf8.h"
#include "host/plan/Duration.h"
#include "host/session/Simulation.h"
#include "host/verb/Settings.h"
#include "host/verb/Verbs.h"

namespace Host {

namespace {

constexpr const char* schema = "stagemgr.simulate/1";

struct SimulateArguments {
    std::string plan;
    std::vector<std::string> settings;
    bool eachMissing = false;
    std::optional<std::string> runs;
    std::optional<std::string> seed;
    std::vector<std::string> expected;
    std::string within;
    std::optional<std::string> atLeast;
    std::optional<std::string> jobs;
    std::string record;
    bool json = false;
};

std::string share(std::uint64_t part, std::uint64_t all) {
    return fmt::format("{:.2f} %", 100.0 * static_cast<double>(part) / static_cast<double>(all));
}

double probability(std::uint64_t part, std::uint64_t all) {
    return static_cast<double>(part) / static_cast<double>(all);
}

// What --at-least says, per cent.
double leastShare(const SimulateArguments& arguments) {
    if (!arguments.atLeast) return 100.0;
    const std::string& text = *arguments.atLeast;
    double percent = 0.0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, percent);
    if (error != std::errc() || stop != end || !(percent >= 0.0 && percent <= 100.0))
        throw UsageError(fmt::format(
            "stagemgr: --at-least {}: write how many in a hundred, from 0 to 100", inQuotes(text)));
    return percent;
}

std::optional<Expectation> expectation(const SimulateArguments& arguments) {
    if (arguments.expected.empty() && arguments.within.empty()) return {};
    Expectation made{{}, Session::never};
    std::vector<std::string_view> words;
    for (const RunOutcome outcome : allRunOutcomes()) words.push_back(outcomeWord(outcome));
    for (const std::string& text : arguments.expected) {
        if (text == "reboot") {  // as one says it
            made.outcomes.push_back(RunOutcome::rebooting);
            continue;
        }
        const auto found = std::find(words.begin(), words.end(), text);
        if (found == words.end()) {
            const std::string nearest = suggestion(text, words);
            throw UsageError(fmt::format(
                "stagemgr: --expect: no outcome {}{}", inQuotes(text),
                nearest.empty() ? fmt::format("; there are {}", fmt::join(words, ", ")) : nearest));
        }
        made.outcomes.push_back(static_cast<RunOutcome>(found - words.begin()));
    }
    if (made.outcomes.empty()) made.outcomes.push_back(RunOutcome::complete);
    if (!arguments.within.empty()) made.within = durationOption("--within", arguments.within);
    return made;
}

std::string text(const Expectation& expected) {
    std::vector<std::string_view> words;
    for (const RunOutcome outcome : expected.outcomes) words.push_back(outcomeWord(outcome));
    return fmt::format("{}{}", fmt::join(words, " or "),
                       std::isinf(expected.within) ? "" : " within " + timeText(expected.within));
}

Json jsonOf(const Expectation& expected, bool met) {
    Json::Array words;
    for (const RunOutcome outcome : expected.outcomes)
        words.emplace_back(std::string(outcomeWord(outcome)));
    return Json::Object{{"outcomes", std::move(words)}, {"within", expected.within}, {"met", met}};
}

std::string_view stateWord(StageOutcome::State state) {
    using State = StageOutcome::State;
    switch (state) {
        case State::complete: return "complete";
        case State::late: return "late";
        case State::passedOver: return "continued";
        case State::running: return "running";
        case State::overdue: return "overdue";
        case State::notStarted: break;
    }
    return "not-started";
}

template <class Names>
Json::Array names(const Names& given) {
    Json::Array made;
    for (const auto& name : given) made.emplace_back(name.str());
    return made;
}

Json jsonOf(const StageOutcome& stage) {
    Json::Object made{{"stage", stage.stage.str()},
                      {"state", std::string(stateWord(stage.state))},
                      {"critical", stage.critical}};
    if (stage.isComplete()) made.emplace_back("completion", stage.completionTime);
    if (!stage.pendingAgents.empty()) made.emplace_back("pending", names(stage.pendingAgents));
    if (!stage.assumedAgents.empty()) made.emplace_back("assumed", names(stage.assumedAgents));
    if (stage.state == StageOutcome::State::notStarted) {
        made.emplace_back("incompleteDependencies", names(stage.incompleteDependencies));
        made.emplace_back("heldByOperator", stage.heldByOperator);
        made.emplace_back("heldByCritical", stage.heldByCritical);
    }
    return made;
}

Json jsonOf(const InstanceOutcome& instance) {
    Json::Array stages;
    for (const StageOutcome& stage : instance.stages) stages.push_back(jsonOf(stage));
    return Json::Object{{"stageClass", instance.stageClass.str()},
                        {"instance", instance.instance.str()},
                        {"outcome", std::string(outcomeWord(instanceOutcome(instance)))},
                        {"lastCompletion", instance.lastCompletion},
                        {"stages", std::move(stages)}};
}

// Does what one command line asks for.
class Simulate {
  public:
    Simulate(const SimulateArguments& arguments, const Console& console)
        : arguments_(arguments),
          console_(console),
          runs_(arguments.runs ? numberOption("--runs", *arguments.runs, 1, 100'000'000) : 0),
          jobs_(arguments.jobs
                    ? static_cast<unsigned>(numberOption("--jobs", *arguments.jobs, 1, 1024))
                    : std::max(1U, std::thread::hardware_concurrency())),
          atLeast_(leastShare(arguments)),
          expected_(expectation(arguments)),
          plan_(planFile(arguments.plan, console)),
          durations_(plan_) {
        if (arguments.seed)
            seed_ = numberOption("--seed", *arguments.seed, 0,
                                 std::numeric_limits<std::uint64_t>::max());
        applySettings(arguments.settings, plan_, durations_);
        if (const std::size_t assumed = durations_.assumed(); assumed != 0 && !arguments.json)
            console.err << fmt::format(
                "stagemgr: {} participant{} not say how long {}; {} assumed to take {}{}: "
                "\"takes\" "
                "in the plan, or --set, says it\n",
                assumed, assumed == 1 ? " does" : "s do", assumed == 1 ? "it takes" : "they take",
                assumed == 1 ? "it is" : "they are", timeText(assumedTakes.a),
                assumed == 1 ? "" : " each");
        json_ = {{"schema", schema},
                 {"plan", plan_.file},
                 {"assumedParticipants", static_cast<double>(durations_.assumed())}};
    }

    int single() {
        if (seed_) durations_.draw(*seed_, 0);
        std::optional<OutFile> record;
        if (!arguments_.record.empty()) record.emplace(arguments_.record, console_);
        View nobody;
        HumanView human(console_.out, HumanStyle{console_.colour, console_.columns});
        View& view = arguments_.json ? nobody : human;
        const Simulation run =
            simulate(plan_, durations_, view, record ? &record->stream() : nullptr);
        if (record) record->flush();

        const bool met = !expected_ || expected_->met(run.outcome, run.time);
        if (arguments_.json) {
            Json::Array instances;
            for (const InstanceOutcome& instance : run.instances)
                instances.push_back(jsonOf(instance));
            json_.emplace_back("kind", "single");
            if (seed_) json_.emplace_back("seed", std::to_string(*seed_));
            add(run.outcome, run.time);
            if (!run.rebootReason.empty()) json_.emplace_back("rebootReason", run.rebootReason);
            json_.emplace_back("instances", std::move(instances));
            write(met);
        } else {
            console_.out << '\n' << "Outcome: " << told(run) << '\n';
        }
        if (!expected_) return isCompletion(run.outcome) ? exitDone : exitFailed;
        return judged(met, told(run));
    }

    int each() {
        View nobody;
        if (seed_) durations_.draw(*seed_, 0);
        const Simulation whole = simulate(plan_, durations_, nobody);
        console_.out.flush();
        std::vector<Missing> all = eachMissing(jobs_, plan_, durations_);
        const auto met = [&](const Missing& one) { return expected_->met(one.outcome, one.time); };
        const auto good =
            static_cast<std::uint64_t>(expected_ ? std::count_if(all.begin(), all.end(), met)
                                                 : static_cast<std::ptrdiff_t>(all.size()));
        // The worst first.
        std::stable_sort(all.begin(), all.end(), [](const Missing& a, const Missing& b) {
            return a.outcome != b.outcome ? a.outcome > b.outcome : a.time > b.time;
        });
        if (arguments_.json)
            writeEach(whole, all, good);
        else
            showEach(whole, all);
        if (!expected_) return isCompletion(whole.outcome) ? exitDone : exitFailed;
        return judged(enough(good, all.size()),
                      fmt::format("{} of {} losses did not end so", all.size() - good, all.size()));
    }

    int many() {
        const std::uint64_t seed = seed_.value_or(1);
        console_.out.flush();
        Runs runs = simulateRunsIn(jobs_, plan_, durations_, seed, runs_, expected_);
        std::sort(runs.completions.begin(), runs.completions.end());
        if (arguments_.json)
            writeMany(runs, seed);
        else
            showMany(runs, seed);
        if (!expected_) {
            const bool met = enough(runs.completions.size(), runs_);
            if (!met && arguments_.atLeast)
                console_.err << fmt::format(
                    "stagemgr: {}: {} of {} runs ({}) completed; at least {} % have to\n",
                    printable(plan_.file), runs.completions.size(), runs_,
                    share(runs.completions.size(), runs_), atLeast_);
            return met ? exitDone : exitFailed;
        }
        return judged(enough(runs.met, runs_), fmt::format("{} of {} runs ({}) ended so", runs.met,
                                                           runs_, share(runs.met, runs_)));
    }

  private:
    bool enough(std::uint64_t good, std::uint64_t all) const {
        return static_cast<double>(good) * 100.0 >= atLeast_ * static_cast<double>(all);
    }

    static std::string told(const Simulation& run) {
        std::string text = fmt::format("{} after {}", outcomeWord(run.outcome), timeText(run.time));
        text += fmt::format(": the run {}", outcomeText(run.outcome));
        if (!run.rebootReason.empty()) text += " (" + printable(run.rebootReason) + ")";
        return text;
    }

    int judged(bool met, const std::string& came) const {
        std::string wanted = text(*expected_);
        if (atLeast_ < 100.0 && (runs_ != 0 || arguments_.eachMissing))
            wanted += fmt::format(" in at least {} % of the runs", atLeast_);
        if (!met)
            console_.err << fmt::format("stagemgr: {}: expected {}; {}\n", printable(plan_.file),
                                        wanted, came);
        else if (!arguments_.json)
            console_.out << "As expected: " << wanted << '\n';
        console_.out.flush();
        return met ? exitDone : exitFailed;
    }

    std::string nameOf(const Missing& one) const {
        return participantName(plan_, *one.stageClass, *one.stage, *one.participant);
    }

    void showEach(const Simulation& whole, const std::vector<Missing>& all) const {
        Table losses({{"LOST"}, {"OUTCOME"}, {"AFTER"}, {"DELAY"}});
        std::vector<std::uint64_t> counts(allRunOutcomes().size());
        for (const Missing& one : all) {
            ++counts[static_cast<std::size_t>(one.outcome)];
            const bool delayed = isCompletion(one.outcome) && isCompletion(whole.outcome);
            const double delay = one.time - whole.time;
            losses.row({printable(nameOf(one)), std::string(outcomeWord(one.outcome)),
                        timeText(one.time),
                        delayed ? (delay >= 0 ? "+" : "") + timeText(delay) : "-"});
        }
        console_.out << losses.text(false) << "\nWithout a loss: " << told(whole) << '\n';
        std::vector<std::string> parts;
        for (const RunOutcome outcome : allRunOutcomes())
            if (const std::uint64_t count = counts[static_cast<std::size_t>(outcome)]; count != 0)
                parts.push_back(fmt::format("{} {}", count, outcomeWord(outcome)));
        console_.out << fmt::format("{} loss{}: {}\n", all.size(), all.size() == 1 ? "" : "es",
                                    fmt::join(parts, ", "));
    }

    void showMany(const Runs& runs, std::uint64_t seed) const {
        console_.out << fmt::format("{} run{}, seed {}\n\n", runs_, runs_ == 1 ? "" : "s", seed);
        Table ends({{"OUTCOME"}, {"SHARE"}, {"RUNS"}});
        for (const RunOutcome outcome : allRunOutcomes())
            if (const std::uint64_t count = runs.outcomes[static_cast<std::size_t>(outcome)])
                ends.row({std::string(outcomeWord(outcome)), share(count, runs_),
                          std::to_string(count)});
        console_.out << ends.text(false);
        if (!runs.completions.empty()) {
            Table times({{"COMPLETE"},
                         {runs.completions.size() == runs_
                              ? "WITHIN"
                              : fmt::format("WITHIN (of the {} runs that completed)",
                                            runs.completions.size())}});
            for (const unsigned percent : {50U, 90U, 95U, 99U, 100U})
                times.row({percent == 100 ? "all" : fmt::format("{} %", percent),
                           timeText(percentile(runs.completions, percent))});
            console_.out << '\n' << times.text(false);
        }
        Table timeouts({{"TIMED OUT"}, {"SHARE"}, {"RUNS"}});
        forEachTimeout(
            runs, [&](const PlanClass& stageClass, const PlanStage& stage, std::uint64_t count) {
                const std::string name =
                    plan_.classes.size() > 1 ? stageClass.name + "/" + stage.name : stage.name;
                timeouts.row({printable(name), share(count, runs_), std::to_string(count)});
            });
        if (!timeouts.empty()) console_.out << '\n' << timeouts.text(false);
    }

    // Of the stages that timed out, in the order of the plan.
    template <class Visit>
    void forEachTimeout(const Runs& runs, const Visit& visit) const {
        std::size_t place = 0;
        for (const PlanClass& stageClass : plan_.classes)
            for (const PlanStage& stage : stageClass.stages)
                if (const std::uint64_t count = runs.timeouts[place++])
                    visit(stageClass, stage, count);
    }

    void add(RunOutcome outcome, double time) {
        json_.emplace_back("outcome", std::string(outcomeWord(outcome)));
        json_.emplace_back("time", time);
    }

    void writeEach(const Simulation& whole, const std::vector<Missing>& all, std::uint64_t good) {
        json_.emplace_back("kind", "eachMissing");
        if (seed_) json_.emplace_back("seed", std::to_string(*seed_));
        add(whole.outcome, whole.time);
        Json::Array missing;
        for (const Missing& one : all) {
            Json::Object row{{"stageClass", one.stageClass->name},
                             {"stage", one.stage->name},
                             {"agent", one.participant->name},
                             {"outcome", std::string(outcomeWord(one.outcome))},
                             {"time", one.time}};
            if (isCompletion(one.outcome) && isCompletion(whole.outcome))
                row.emplace_back("delay", one.time - whole.time);
            missing.emplace_back(std::move(row));
        }
        json_.emplace_back("missing", std::move(missing));
        write(enough(good, all.size()));
    }

    void writeMany(const Runs& runs, std::uint64_t seed) {
        json_.emplace_back("kind", "runs");
        json_.emplace_back("seed", std::to_string(seed));
        json_.emplace_back("runs", static_cast<double>(runs_));
        Json::Array outcomes;
        for (const RunOutcome outcome : allRunOutcomes())
            if (const std::uint64_t count = runs.outcomes[static_cast<std::size_t>(outcome)])
                outcomes.emplace_back(Json::Object{{"outcome", std::string(outcomeWord(outcome))},
                                                   {"runs", static_cast<double>(count)},
                                                   {"probability", probability(count, runs_)}});
        json_.emplace_back("outcomes", std::move(outcomes));
        Json::Object completion{{"runs", static_cast<double>(runs.completions.size())}};
        if (!runs.completions.empty()) {
            for (const unsigned percent : {50U, 90U, 95U, 99U})
                completion.emplace_back(fmt::format("p{}", percent),
                                        percentile(runs.completions, percent));
            completion.emplace_back("max", runs.completions.back());
        }
        json_.emplace_back("completion", std::move(completion));
        Json::Array timeouts;
        forEachTimeout(
            runs, [&](const PlanClass& stageClass, const PlanStage& stage, std::uint64_t count) {
                timeouts.emplace_back(Json::Object{{"stageClass", stageClass.name},
                                                   {"stage", stage.name},
                                                   {"runs", static_cast<double>(count)},
                                                   {"probability", probability(count, runs_)}});
            });
        json_.emplace_back("timeouts", std::move(timeouts));
        if (expected_) json_.emplace_back("asExpected", static_cast<double>(runs.met));
        write(enough(runs.met, runs_));
    }

    void write(bool met) {
        if (expected_) json_.emplace_back("expected", jsonOf(*expected_, met));
        std::string text;
        appendJson(text, std::move(json_));
        console_.out << text << '\n';
    }

    const SimulateArguments& arguments_;
    const Console& console_;
    std::uint64_t runs_;  // 0: a single one, or one for each loss
    unsigned jobs_;
    double atLeast_;  // per cent
    std::optional<std::uint64_t> seed_{};
    std::optional<Expectation> expected_;
    Plan plan_;
    Durations durations_;
    Json::Object json_;
};

int runSimulate(const SimulateArguments& arguments, const Console& console) {
    if (arguments.eachMissing && arguments.runs)
        throw UsageError(
            "stagemgr: --each-agent-missing has runs of its own; leave out --runs, or the other");
    if (!arguments.record.empty() && (arguments.eachMissing || arguments.runs))
        throw UsageError("stagemgr: --record writes the journal of a single run; leave out " +
                         std::string(arguments.runs ? "--runs" : "--each-agent-missing"));
    if (arguments.record == "-")
        throw UsageError(
            "stagemgr: --record needs the name of a file; standard output has what "
            "the simulation shows");
    keepApart("--record", arguments.record, arguments.plan);
    const bool several = arguments.eachMissing || arguments.runs;
    if (!several && (arguments.atLeast || arguments.jobs))
        throw UsageError(fmt::format(
            "stagemgr: {} is for several runs; add --runs or --each-agent-missing, or leave it out",
            arguments.atLeast ? "--at-least" : "--jobs"));
    Simulate simulation(arguments, console);
    const int status = arguments.eachMissing ? simulation.each()
                       : arguments.runs      ? simulation.many()
                                             : simulation.single();
    return status;
}

}  // namespace

void addSimulate(Verbs& verbs) {
    const auto arguments = std::make_shared<SimulateArguments>();
    CLI::App& command = verbs.add(
        "simulate", "Run a plan in virtual time, once or thousands of times, and tell how it ends",
        [&verbs, arguments] { return runSimulate(*arguments, verbs.console()); });
    command.add_option("PLAN", arguments->plan, "The plan; - is standard input")->required();
    command.add_option("--set", arguments->settings, settingHelp)
        ->type_name("AGENT:STAGE=DURATION|never")
        ->allow_extra_args(false)
        ->take_all();
    command.add_flag("--each-agent-missing", arguments->eachMissing,
                     "One run for each participant that never reports: which losses end in a "
                     "reboot, which only delay?");
    command
        .add_option("--runs", arguments->runs,
                    "So many runs with durations that are drawn, and what came of them")
        ->type_name("N");
    command
        .add_option("--seed", arguments->seed,
                    "What is drawn depends on it; without --runs, durations are drawn once")
        ->type_name("NUMBER");
    command
        .add_option(
            "--expect", arguments->expected,
            "End with 0 if the run ends so, and with 1 if not: complete, reboot, held, ...; "
            "several with commas between")
        ->type_name("OUTCOME")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->take_all();
    command
        .add_option("--within", arguments->within,
                    "It has to end so that soon after the run's begin; --expect complete, if "
                    "nothing else is expected")
        ->type_name("DURATION");
    command
        .add_option("--at-least", arguments->atLeast,
                    "With --runs or --each-agent-missing: how many in a hundred have to, 100 at "
                    "first")
        ->type_name("PERCENT");
    command
        .add_option("--jobs", arguments->jobs,
                    "Spread the runs over so many processes; as many as there are processors at "
                    "first. The result is the same")
        ->type_name("N");
    command
        .add_option("--record", arguments->record, "Write the journal of the run there, for replay")
        ->type_name("FILE");
    command.add_flag("--json", arguments->json, "Write JSON: " + std::string(schema));
}

}  // namespace Host
