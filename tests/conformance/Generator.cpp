#include "tests/conformance/Generator.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <utility>

namespace conformance {
namespace {

using Names = std::vector<std::string>;

const Names oddNames = {
    "a/b",
    "~",
    "~1",
    "a~0b",
    " ",
    "two words",
    "quo\"te",
    "back\\slash",
    "A:b",
    ":",
    "line\nbreak",
    "tab\t",
    "%s %d",
    "{}",
    "\xc3\xa9",
    "\xe6\x97\xa5",
    "..",
    "event",
    "config",
    "main",
    "null",
    "a.b,c;d",
    "\x01",
    "-",
    "A",
    "a",
    "\xf0\x9f\x8e\x89",
    "a rather long name that no table of short strings holds in place of a pointer to it"};

const std::vector<double> usualLimits = {0,  0.5, 1,  2,  3,    5,   8,       10,
                                         10, 12,  20, 30, 90.9, 0.1, 16777217};
const std::vector<double> oddLimits = {0,
                                       -1,
                                       -0.5,
                                       0.3,
                                       1e-320,
                                       1e9,
                                       3.4e38,
                                       3.4028235e38,
                                       3.4028235677973366e38,
                                       -3.4028235e38,
                                       3.5e38,
                                       1e300,
                                       std::numeric_limits<double>::infinity(),
                                       -std::numeric_limits<double>::infinity(),
                                       std::numeric_limits<double>::quiet_NaN()};

const Names wrongTypes = {"Orv::Dir",      "Stage::Config",      "Stage::AgentConfig",
                          "Stage::Log",    "Stage::AgentStatus", "Stage::EnabledConfig",
                          "Stage::Status", "Stage::ProgressDir", "Stage::CompletionStatusDir"};

// One journal in the making. No expression here draws twice at random where the language leaves the
// order of the two open, since compilers differ in it.
class World {
  public:
    World(std::uint64_t seed, const GeneratorOptions& options)
        : options_(options), random_(seed), state_(initialState()) {
        const bool odd = random_.percent(20);
        classes_ =
            names({"boot", "switchover", "C"}, 1 + random_.below(random_.oneIn(3) ? 3 : 1), odd);
        stages_ = names({"A", "B", "C", "D", "E", "F"}, 1 + random_.below(6), odd);
        agents_ = names({"a", "b", "c", "d", "e"}, 1 + random_.below(5), odd);
        instances_ = names({"main", "alt", "x"}, 1 + random_.below(random_.oneIn(2) ? 3 : 1), odd);
        oddLimitPercent_ = random_.oneIn(3) ? 25 : 3;
        criticalPercent_ = random_.oneIn(2) ? 20 : 50;
        cyclesPercent_ = random_.oneIn(3) ? 30 : 3;
        settlePercent_ = random_.oneIn(2) ? 40 : 5;
    }

    std::vector<Line> journal() {
        setUp();
        body();
        if (random_.percent(70)) {
            if (random_.percent(70)) at_ += static_cast<double>(random_.below(200));
            Line end;
            end.op = Op::end;
            add(end);
        }
        return std::move(lines_);
    }

  private:
    using Sequence = std::vector<Line>;

    Names names(Names plain, std::size_t count, bool odd) {
        if (odd)
            for (std::string& each : plain)
                if (random_.percent(60)) each = random_.of(oddNames);
        std::sort(plain.begin(), plain.end());
        plain.erase(std::unique(plain.begin(), plain.end()), plain.end());
        shuffle(plain);
        plain.resize(std::min(plain.size(), count));
        return plain;
    }

    template <class T>
    void shuffle(std::vector<T>& items) {
        for (std::size_t i = items.size(); i > 1; --i)
            std::swap(items[i - 1], items[random_.below(i)]);
    }

    // --- Lines

    bool canAdd(Line line) {
        line.at = at_;
        advanceBefore(state_, at_);
        return problem(state_, line).empty();
    }

    bool add(Line line) {
        if (state_.aborted || state_.ended || !canAdd(line)) return false;
        line.at = at_;
        feed(state_, line);
        if (state_.aborted && !options_.abort) {
            state_ = initialState();
            for (const Line& each : lines_) feed(state_, each);
            advanceBefore(state_, at_);
            return false;
        }
        lines_.push_back(std::move(line));
        return true;
    }

    static Line create(std::string path, std::string type) {
        Line line;
        line.op = Op::create;
        line.path = std::move(path);
        line.type = std::move(type);
        return line;
    }
    static Line remove(std::string path) {
        Line line;
        line.op = Op::remove;
        line.path = std::move(path);
        return line;
    }
    static Line set(std::string path, std::string attr, Value value) {
        Line line;
        line.op = Op::set;
        line.path = std::move(path);
        line.attr = std::move(attr);
        line.value = std::move(value);
        return line;
    }
    static Line setMember(std::string path, std::string attr, Key key,
                          std::optional<Value> value = std::nullopt) {
        Line line;
        line.op = Op::set;
        line.path = std::move(path);
        line.attr = std::move(attr);
        line.key = std::move(key);
        line.value = std::move(value);
        return line;
    }
    static Line unset(std::string path, std::string attr, Key key) {
        Line line = setMember(std::move(path), std::move(attr), std::move(key));
        line.op = Op::unset;
        return line;
    }
    static Line clear(std::string path, std::string attr) {
        Line line;
        line.op = Op::clear;
        line.path = std::move(path);
        line.attr = std::move(attr);
        return line;
    }
    // A member set to true or false, or taken out.
    Line flagOrUnset(std::string path, std::string attr, Key key, std::size_t truePercent) {
        const std::size_t roll = random_.below(100);
        if (roll < truePercent) return setMember(std::move(path), std::move(attr), key, true);
        if (roll % 2 == 0) return setMember(std::move(path), std::move(attr), key, false);
        return unset(std::move(path), std::move(attr), key);
    }

    // --- Paths and values

    const std::string& aClass() { return random_.of(classes_); }
    const std::string& aStage() { return random_.of(stages_); }
    const std::string& anAgent() { return random_.of(agents_); }
    const std::string& anInstance() { return random_.of(instances_); }

    static std::string below(const std::string& path, const std::string& name) {
        return path + '/' + escaped(name);
    }
    std::string place(const std::string& c, const char* name) {
        return below("/stage", c) + '/' + name;
    }
    std::string configOf(const std::string& c) { return place(c, "config/config"); }
    std::string agentOf(const std::string& c, const std::string& a) {
        return below(below("/input", c), a);
    }
    std::string reporterOf(const std::string& c, const std::string& a) {
        return below(below("/agentstatus", c), a);
    }
    std::string eventOf(const std::string& c, const std::string& a, const std::string& s) {
        return below(agentOf(c, a) + "/event", s);
    }
    std::string stageOf(const std::string& c, const std::string& s) {
        return below(place(c, "status/stage"), s);
    }
    std::string instanceOf(const std::string& c, const std::string& i) {
        return below(place(c, "status/instStatus"), i);
    }
    bool exists(const std::string& path) { return find(state_, path).has_value(); }

    double limit() {
        return random_.percent(oddLimitPercent_) ? random_.of(oddLimits) : random_.of(usualLimits);
    }

    std::string dependencyFor(const std::string& stage) {
        if (random_.percent(4)) return "missing";
        if (random_.percent(cyclesPercent_)) return aStage();
        // Backwards only: no cycle.
        const auto own = std::find(stages_.begin(), stages_.end(), stage);
        const auto before = static_cast<std::size_t>(own - stages_.begin());
        return before ? stages_[random_.below(before)] : "";
    }

    // An event that some agent has in its registration now, if one is found.
    std::optional<std::pair<std::string, std::string>> registered(const std::string& c) {
        for (int tries = 0; tries < 6; ++tries) {
            const std::string a = anAgent();
            const std::string s = aStage();
            if (exists(eventOf(c, a, s))) return std::pair(a, s);
        }
        return std::nullopt;
    }

    // --- Set-up

    Sequence registration(const std::string& c, const std::string& a, const std::string& s) {
        const std::string path = eventOf(c, a, s);
        Sequence lines = {setMember(agentOf(c, a), "event", nameKey(s))};
        if (random_.percent(85)) lines.push_back(set(path, "timeout", limit()));
        if (random_.percent(criticalPercent_)) lines.push_back(set(path, "critical", true));
        for (std::size_t n = random_.below(3); n > 0; --n) {
            const std::string dependency = dependencyFor(s);
            if (!dependency.empty())
                lines.push_back(
                    setMember(path, "dependency", nameKey(dependency), !random_.oneIn(12)));
        }
        if (random_.percent(25)) {
            lines.push_back(set(path, "autoCompleteTimeout", limit()));
            lines.push_back(set(path, "enableAutoComplete", true));
        }
        if (random_.percent(6)) {
            const std::string i = anInstance();
            lines.push_back(setMember(path, "complete", nameKey(i), !random_.oneIn(4)));
        }
        if (options_.rename && random_.percent(6)) lines.push_back(set(path, "agent", anAgent()));
        return lines;
    }

    void setUpClass(const std::string& c, std::vector<Sequence>& sequences) {
        const bool late = random_.percent(20);
        const auto wrongFirst = [&](Sequence lines) {
            if (random_.percent(4)) {
                lines.insert(lines.begin(), remove(lines.front().path));
                lines.insert(lines.begin(), create(lines.front().path, random_.of(wrongTypes)));
            }
            if (late && random_.percent(15))
                withheld_.push_back(std::move(lines));
            else
                sequences.push_back(std::move(lines));
        };
        wrongFirst({create(below("/stage", c), "Orv::Dir")});
        wrongFirst({create(place(c, "config"), "Orv::Dir")});

        const std::string config = configOf(c);
        Sequence configLines = {create(config, "Stage::Config")};
        if (!random_.oneIn(8)) configLines.push_back(set(config, "stageClass", c));
        configLines.push_back(set(config, "application", std::string("App")));
        if (random_.percent(80))
            configLines.push_back(
                set(config, "resetMode", std::string(random_.oneIn(2) ? "cold" : "powerCycle")));
        configLines.push_back(
            set(config, "reloadCauseDesc", std::string(random_.oneIn(6) ? "" : "It was slow.")));
        if (random_.percent(30)) configLines.push_back(set(config, "stageTimeoutIsFatal", true));
        if (random_.percent(25)) configLines.push_back(set(config, "continueOnTimeout", true));
        if (random_.percent(35))
            configLines.push_back(set(config, "globalStageCompletionTimeout", limit()));
        wrongFirst(std::move(configLines));

        wrongFirst({create(place(c, "status"), "Stage::Status")});
        wrongFirst({create(place(c, "completionstatus"), "Stage::CompletionStatusDir")});
        wrongFirst({create(place(c, "progress"), "Stage::ProgressDir")});
        wrongFirst({create(place(c, "log"), "Stage::Log")});
        wrongFirst({create(below("/input", c), "Orv::Dir")});

        for (const std::string& a : agents_) {
            if (random_.percent(15)) continue;
            Sequence lines = {create(agentOf(c, a), "Stage::AgentConfig")};
            for (const std::string& s : stages_)
                if (random_.percent(40))
                    for (Line& line : registration(c, a, s)) lines.push_back(std::move(line));
            if (random_.percent(4))
                lines.push_back(set(agentOf(c, a), "createdOnStageRequest", true));
            sequences.push_back(std::move(lines));
        }
        for (const std::string& a : agents_) {
            if (!random_.percent(8)) continue;
            const std::string s = aStage();
            sequences.push_back(reportLines(c, a, s, anInstance()));
        }
        if (options_.meddle && random_.percent(8)) setUpEarlierRun(c, sequences);

        const std::string enable = below("/enable", c);
        Sequence enableLines = {create(enable, "Stage::EnabledConfig")};
        for (const std::string& i : instances_)
            if (random_.percent(75))
                enableLines.push_back(setMember(enable, "enabled", nameKey(i), !random_.oneIn(10)));
        if (random_.percent(5))
            enableLines.push_back(setMember(enable, "suspended", nameKey(anInstance()), true));

        wrongFirst({create(below("/agentstatus", c), "Orv::Dir")});
        wrongFirst(std::move(enableLines));
    }

    // What an earlier run, or another program, may have left behind.
    void setUpEarlierRun(const std::string& c, std::vector<Sequence>& sequences) {
        const std::string i = anInstance();
        const std::string s = aStage();
        Sequence lines;
        if (random_.oneIn(2)) lines.push_back(setMember(place(c, "status"), "stage", nameKey(s)));
        if (random_.oneIn(2))
            lines.push_back(setMember(place(c, "status"), "instStatus", nameKey(i)));
        if (random_.oneIn(2))
            lines.push_back(
                setMember(instanceOf(c, i), "activeStage", nameKey(s), Value(stageOf(c, s))));
        if (random_.oneIn(3))
            lines.push_back(setMember(place(c, "progress"), "progress", nameKey(i)));
        if (random_.oneIn(3)) {
            lines.push_back(setMember(place(c, "completionstatus"), "status", nameKey(i)));
            lines.push_back(
                set(below(place(c, "completionstatus/status"), i), "complete", random_.oneIn(2)));
        }
        if (random_.oneIn(3))
            lines.push_back(setMember(place(c, "log"), "instanceLog", nameKey(i)));
        if (options_.rename && random_.oneIn(2)) {
            const std::string a = anAgent();
            lines.push_back(setMember(place(c, "status"), "stage", nameKey(s)));
            lines.push_back(setMember(stageOf(c, s), "event", nameKey(a), Value(eventOf(c, a, s))));
            lines.push_back(set(eventOf(c, a, s), "agent", anAgent()));
        }
        sequences.push_back(std::move(lines));
    }

    void setUp() {
        std::vector<Sequence> sequences;
        for (const std::string& c : classes_) setUpClass(c, sequences);
        if (random_.percent(15)) {
            const std::string c = aClass();
            sequences.push_back(
                {setMember("/global", "doNotStartStage", placeKey(c, aStage()), true)});
        }
        const bool anyOrder = random_.percent(35);
        emit(sequences, anyOrder);
    }

    // The sequences one after another, or the next line of any of them. A line whose path is not
    // there yet waits; what can never be added is left out in the end.
    void emit(std::vector<Sequence> sequences, bool anyOrder) {
        if (anyOrder) shuffle(sequences);
        std::vector<std::size_t> done(sequences.size(), 0);
        for (bool progress = true; progress;) {
            progress = false;
            for (std::size_t each = 0; each < sequences.size(); ++each) {
                const std::size_t many = anyOrder ? 1 + random_.below(4) : sequences[each].size();
                for (std::size_t n = 0; n < many && done[each] < sequences[each].size(); ++n) {
                    if (!add(sequences[each][done[each]])) break;
                    ++done[each];
                    progress = true;
                    if (anyOrder && random_.percent(settlePercent_ / 4)) settle();
                    if (anyOrder && random_.oneIn(40)) passTime();
                }
            }
        }
    }

    void settle() {
        Line line;
        line.op = Op::settle;
        add(line);
    }

    void passTime() {
        const auto due = nextDue(state_);
        const bool near = due && *due > at_ && *due < 1e6;
        switch (random_.below(8)) {
            case 0:
            case 1: at_ += static_cast<double>(1 + random_.below(5)); break;
            case 2: at_ += 0.25; break;
            case 3:
            case 4: at_ = near ? *due : at_ + 1; break;
            case 5: at_ = near ? (at_ + *due) / 2 : at_ + 0.5; break;
            case 6: at_ = near ? *due + 0.125 : at_ + 10; break;
            default: at_ += static_cast<double>(random_.below(40)); break;
        }
    }

    // --- Body

    Sequence reportLines(const std::string& c, const std::string& a, const std::string& s,
                         const std::string& i) {
        const std::string path = reporterOf(c, a);
        Sequence lines;
        if (!exists(path)) lines.push_back(create(path, "Stage::AgentStatus"));
        lines.push_back(setMember(path, "complete", reportKey(a, s, i), true));
        return lines;
    }

    void addAll(const Sequence& lines) {
        for (const Line& line : lines) add(line);
    }

    void report() {
        const std::string c = aClass();
        auto event = registered(c);
        if (!event || random_.percent(8)) {
            const std::string a = anAgent();
            event = std::pair(a, aStage());
        }
        addAll(reportLines(c, event->first, event->second, anInstance()));
    }

    // Every event of a stage, in this instance or in all of them.
    void reportStage() {
        const std::string c = aClass();
        const std::string s = aStage();
        for (const std::string& i : instances_) {
            if (random_.oneIn(3)) continue;
            for (const std::string& a : agents_)
                if (exists(eventOf(c, a, s)) && !random_.oneIn(8)) addAll(reportLines(c, a, s, i));
        }
    }

    void oddReport() {
        const std::string c = aClass();
        const std::string a = anAgent();
        const std::string path = reporterOf(c, a);
        if (!exists(path)) add(create(path, "Stage::AgentStatus"));
        const std::string agent = random_.oneIn(3) ? anAgent() : a;
        const std::string s = aStage();
        const Key key = reportKey(agent, s, anInstance());
        if (random_.oneIn(12))
            add(clear(path, "complete"));
        else
            add(flagOrUnset(path, "complete", key, 34));
    }

    void completeEvent() {
        const std::string c = aClass();
        const auto event = registered(c);
        if (!event) return;
        const std::string path = eventOf(c, event->first, event->second);
        if (random_.oneIn(15))
            add(clear(path, "complete"));
        else
            add(flagOrUnset(path, "complete", nameKey(anInstance()), 60));
    }

    void registerEvent() {
        const std::string c = aClass();
        const std::string a = anAgent();
        if (!exists(agentOf(c, a))) add(create(agentOf(c, a), "Stage::AgentConfig"));
        addAll(registration(c, a, aStage()));
    }

    void withdrawEvent() {
        const std::string c = aClass();
        const auto event = registered(c);
        if (!event) return;
        if (random_.oneIn(8))
            add(clear(agentOf(c, event->first), "event"));
        else
            add(unset(agentOf(c, event->first), "event", nameKey(event->second)));
    }

    void changeEvent() {
        const std::string c = aClass();
        const auto event = registered(c);
        if (!event) return;
        const std::string path = eventOf(c, event->first, event->second);
        switch (random_.below(8)) {
            case 0:
            case 1: add(set(path, "timeout", limit())); break;
            case 2: add(set(path, "autoCompleteTimeout", limit())); break;
            case 3: add(set(path, "enableAutoComplete", !random_.oneIn(3))); break;
            case 4: add(flagOrUnset(path, "error", nameKey(anInstance()), 70)); break;
            case 5: add(set(path, "completeNotRunnable", random_.oneIn(2))); break;
            default: flapCritical(); break;
        }
    }

    void flapCritical() {
        const std::string c = aClass();
        if (const auto event = registered(c))
            add(set(eventOf(c, event->first, event->second), "critical", random_.oneIn(2)));
    }

    void changeDependency() {
        const std::string c = aClass();
        const auto event = registered(c);
        if (!event) return;
        const std::string path = eventOf(c, event->first, event->second);
        if (random_.oneIn(12)) {
            add(clear(path, "dependency"));
            return;
        }
        std::string dependency = dependencyFor(event->second);
        if (dependency.empty() || random_.oneIn(2)) {
            const auto held = keysOf(state_, *find(state_, path), "dependency");
            dependency = held.empty() ? aStage() : random_.of(held).first;
        }
        add(flagOrUnset(path, "dependency", nameKey(dependency), 50));
    }

    void changeRegistry() {
        const std::string c = aClass();
        const std::string a = anAgent();
        const std::string path = random_.oneIn(2) ? agentOf(c, a) : reporterOf(c, a);
        if (random_.oneIn(6))
            add(set(agentOf(c, a), "createdOnStageRequest", !random_.oneIn(4)));
        else if (exists(path) && random_.percent(70))
            add(remove(path));
        else if (random_.oneIn(12))
            add(create(path, random_.of(wrongTypes)));
        else
            add(create(path, path == agentOf(c, a) ? "Stage::AgentConfig" : "Stage::AgentStatus"));
    }

    void request() {
        const std::string c = aClass();
        const std::string a = anAgent();
        const std::string path = reporterOf(c, a);
        if (!exists(path)) add(create(path, "Stage::AgentStatus"));
        if (!exists(path)) return;
        const auto held = keysOf(state_, *find(state_, path), "stageRequest");
        if (!held.empty() && random_.oneIn(3)) {
            if (random_.oneIn(6))
                add(clear(path, "stageRequest"));
            else if (random_.oneIn(4))
                add(setMember(path, "stageRequest", random_.of(held), Request{}));
            else
                add(unset(path, "stageRequest", random_.of(held)));
            return;
        }
        const std::string s = aStage();
        const std::string agent = random_.oneIn(40) ? anAgent() : a;
        const Request wanted{agent, s, limit()};
        add(setMember(path, "stageRequest", nameKey(random_.oneIn(15) ? aStage() : s), wanted));
    }

    void enable() {
        const std::string path = below("/enable", aClass());
        if (random_.oneIn(20))
            add(clear(path, "enabled"));
        else
            add(flagOrUnset(path, "enabled", nameKey(anInstance()), 60));
    }

    void suspend() {
        const std::string path = below("/enable", aClass());
        add(flagOrUnset(path, "suspended", nameKey(anInstance()), 45));
    }

    void hold() {
        const std::string c = random_.oneIn(10) ? "other" : aClass();
        if (random_.oneIn(15))
            add(clear("/global", "doNotStartStage"));
        else
            add(flagOrUnset("/global", "doNotStartStage", placeKey(c, aStage()), 45));
    }

    void changeConfig() {
        const std::string c = aClass();
        const std::string path = configOf(c);
        switch (random_.below(9)) {
            case 0: add(set(path, "stageClass", random_.oneIn(2) ? c : "switchover")); break;
            case 1: add(set(path, "application", random_.of(oddNames))); break;
            case 2: add(set(path, "stageTimeoutIsFatal", random_.oneIn(2))); break;
            case 3: add(set(path, "continueOnTimeout", random_.oneIn(2))); break;
            case 4:
            case 5: add(set(path, "globalStageCompletionTimeout", limit())); break;
            case 6: add(set(path, "resetMode", std::string(random_.of(modes)))); break;
            case 7: add(set(path, "reloadCauseDesc", std::string(random_.of(causes)))); break;
            default:
                add(set(path, "agentDir",
                        random_.oneIn(2) ? Value(std::monostate{}) : Value(below("/input", c))));
                break;
        }
    }

    void reboot() {
        switch (random_.below(4)) {
            case 0: add(set("/fatalerror", "requestReboot", std::string(random_.of(modes)))); break;
            case 1: add(set("/fatalerror", "rebootReason", std::string("asked for"))); break;
            case 2: add(set("/fatalerror", "reloadCauseDesc", std::string())); break;
            default: add(set("/fatalerror", "requestReboot", std::string("none"))); break;
        }
    }

    void meddleWithStage() {
        const std::string c = aClass();
        const std::string s = aStage();
        const std::string path = stageOf(c, s);
        switch (random_.below(9)) {
            case 0: add(setMember(place(c, "status"), "stage", nameKey(s))); break;
            case 1: add(unset(place(c, "status"), "stage", nameKey(s))); break;
            case 2:
                if (random_.oneIn(4)) add(clear(place(c, "status"), "stage"));
                break;
            case 3: add(set(path, "critical", random_.oneIn(2))); break;
            case 4: add(set(path, "timeout", limit())); break;
            case 5: add(flagOrUnset(path, "dependency", nameKey(aStage()), 40)); break;
            case 6: add(unset(path, "event", nameKey(anAgent()))); break;
            case 7: swapEvent(c); break;
            default: add(clear(path, random_.oneIn(2) ? "event" : "dependency")); break;
        }
    }

    // An agent's event of one stage takes the place of its event of another one.
    void swapEvent(const std::string& c) {
        const auto event = registered(c);
        if (!event) return;
        Names others;
        for (const std::string& s : stages_) {
            const auto stage = find(state_, stageOf(c, s));
            if (!stage || (s == event->second && !random_.oneIn(4))) continue;
            for (const Key& agent : keysOf(state_, *stage, "event"))
                if (agent.first == event->first) others.push_back(s);
        }
        const std::string s = others.empty() ? aStage() : random_.of(others);
        if (random_.oneIn(3))
            for (const std::string& each : {event->second, s})
                add(set(eventOf(c, event->first, each), "enableAutoComplete", true));
        add(setMember(stageOf(c, s), "event", nameKey(event->first),
                      Value(eventOf(c, event->first, event->second))));
    }

    void meddleWithInstance() {
        const std::string c = aClass();
        const std::string i = anInstance();
        const std::string s = aStage();
        const std::string path = instanceOf(c, i);
        switch (random_.below(11)) {
            case 0:
            case 1: add(setMember(path, "activeStage", nameKey(s), Value(stageOf(c, s)))); break;
            case 2: add(unset(path, "activeStage", nameKey(s))); break;
            case 3: add(clear(path, "activeStage")); break;
            case 4: add(set(path, "complete", random_.oneIn(2))); break;
            case 5: add(set(path, "suspended", random_.oneIn(2))); break;
            case 6:
                add(set(below(place(c, "completionstatus/status"), i), "complete",
                        random_.oneIn(2)));
                break;
            case 7:
                add(flagOrUnset(below(place(c, "progress/progress"), i), "stage", nameKey(s), 50));
                break;
            case 8: add(set(path, "progress", std::monostate{})); break;
            case 9: add(unset(place(c, "log"), "instanceLog", nameKey(i))); break;
            default: meddleWithRecord(c, i); break;
        }
    }

    void meddleWithRecord(const std::string& c, const std::string& i) {
        const std::vector<std::pair<const char*, const char*>> records = {
            {"status", "instStatus"},
            {"completionstatus", "status"},
            {"progress", "progress"},
            {"log", "instanceLog"}};
        const auto& [dir, attr] = random_.of(records);
        if (random_.oneIn(2))
            add(setMember(place(c, dir), attr, nameKey(i)));
        else
            add(unset(place(c, dir), attr, nameKey(i)));
    }

    void changePlaces() {
        const std::string c = aClass();
        const std::vector<std::pair<std::string, std::string>> places = {
            {below("/stage", c), "Orv::Dir"},
            {below("/input", c), "Orv::Dir"},
            {below("/agentstatus", c), "Orv::Dir"},
            {below("/enable", c), "Stage::EnabledConfig"},
            {place(c, "config"), "Orv::Dir"},
            {configOf(c), "Stage::Config"},
            {place(c, "status"), "Stage::Status"},
            {place(c, "completionstatus"), "Stage::CompletionStatusDir"},
            {place(c, "progress"), "Stage::ProgressDir"},
            {place(c, "log"), "Stage::Log"}};
        const auto& [path, type] = random_.of(places);
        if (exists(path)) {
            add(remove(path));
            if (random_.oneIn(2)) add(create(path, type));
        } else {
            add(create(path, random_.oneIn(8) ? random_.of(wrongTypes) : type));
        }
    }

    void makeWithheld() {
        if (withheld_.empty()) return;
        const std::size_t each = random_.below(withheld_.size());
        Sequence lines = std::move(withheld_[each]);
        withheld_.erase(withheld_.begin() + static_cast<std::ptrdiff_t>(each));
        addAll(lines);
    }

    void rename() {
        const std::string c = aClass();
        const auto event = registered(c);
        if (!event) return;
        const std::string path = eventOf(c, event->first, event->second);
        if (random_.oneIn(4)) {
            add(set(path, "agent", anAgent()));
            return;
        }
        const char* attr = random_.oneIn(2) ? "name" : "stage";
        std::string value = aStage();
        if (random_.oneIn(2)) value += ':' + anAgent();
        add(set(path, attr, value));
    }

    void body() {
        struct Action {
            std::size_t weight;
            std::function<void()> act;
        };
        std::vector<Action> actions = {
            {20, [this] { report(); }},          {12, [this] { reportStage(); }},
            {5, [this] { oddReport(); }},        {6, [this] { completeEvent(); }},
            {6, [this] { registerEvent(); }},    {5, [this] { withdrawEvent(); }},
            {5, [this] { changeEvent(); }},      {5, [this] { flapCritical(); }},
            {5, [this] { changeDependency(); }}, {4, [this] { changeRegistry(); }},
            {4, [this] { request(); }},          {6, [this] { enable(); }},
            {3, [this] { suspend(); }},          {4, [this] { hold(); }},
            {3, [this] { changeConfig(); }},     {1, [this] { reboot(); }},
            {3, [this] { changePlaces(); }},     {12, [this] { makeWithheld(); }},
        };
        if (options_.meddle) {
            actions.push_back({3, [this] { meddleWithStage(); }});
            actions.push_back({3, [this] { meddleWithInstance(); }});
        }
        if (options_.rename) actions.push_back({2, [this] { rename(); }});
        // Each journal is about some of it.
        for (Action& action : actions) {
            const std::size_t roll = random_.below(6);
            action.weight *= roll == 0 ? 0 : roll == 1 ? 4 : 1;
        }
        std::size_t total = 0;
        for (const Action& action : actions) total += action.weight;
        if (total == 0) return;

        const std::size_t start = lines_.size();
        const std::size_t wanted =
            options_.fewest + random_.below(options_.most - options_.fewest + 1);
        const std::size_t slow = 15 + random_.below(60);
        for (int tries = 0; tries < 400 && lines_.size() - start < wanted; ++tries) {
            if (state_.aborted) return;
            if (random_.percent(slow)) passTime();
            std::size_t roll = random_.below(total);
            for (const Action& action : actions) {
                if (roll < action.weight) {
                    action.act();
                    break;
                }
                roll -= action.weight;
            }
            if (random_.percent(settlePercent_)) settle();
        }
    }

    static constexpr std::array<const char*, 4> modes = {"none", "cold", "warm", "powerCycle"};
    static constexpr std::array<const char*, 3> causes = {"", "x", "Slow as ever."};

    GeneratorOptions options_;
    Random random_;
    State state_;
    double at_ = 0;
    std::vector<Line> lines_;
    std::vector<Sequence> withheld_;
    Names classes_;
    Names stages_;
    Names agents_;
    Names instances_;
    std::size_t oddLimitPercent_ = 0;
    std::size_t criticalPercent_ = 0;
    std::size_t cyclesPercent_ = 0;
    std::size_t settlePercent_ = 0;
};

}  // namespace

Random::Random(std::uint64_t seed) : state_{} {
    for (std::uint64_t& each : state_) {
        seed += 0x9e3779b97f4a7c15u;
        std::uint64_t mixed = seed;
        mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9u;
        mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebu;
        each = mixed ^ (mixed >> 31);
    }
}

std::uint64_t Random::next() {
    const auto rotated = [](std::uint64_t value, int by) {
        return (value << by) | (value >> (64 - by));
    };
    const std::uint64_t result = rotated(state_[1] * 5, 7) * 9;
    const std::uint64_t shifted = state_[1] << 17;
    state_[2] ^= state_[0];
    state_[3] ^= state_[1];
    state_[1] ^= state_[2];
    state_[0] ^= state_[3];
    state_[2] ^= shifted;
    state_[3] = rotated(state_[3], 45);
    return result;
}

std::vector<Line> generate(std::uint64_t seed, const GeneratorOptions& options) {
    return World(seed, options).journal();
}

}  // namespace conformance
