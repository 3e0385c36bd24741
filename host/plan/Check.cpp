#include "host/plan/Check.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "host/Suggest.h"
#include "host/Utf8.h"
#include "host/plan/Duration.h"

namespace Host {

namespace {

using Severity = Diagnostic::Severity;
using Stages = std::vector<std::size_t>;

// A limit below is none that anybody can keep.
constexpr double shortest = 1e-3;
// How many of a kind are told apart in one class; the others are counted.
constexpr std::size_t mostOfAKind = 100;
constexpr std::size_t mostRelated = 10;
// How many names are listed, and how many links of a chain are shown.
constexpr std::size_t mostNames = 5;
constexpr std::size_t mostLinks = 12;
// How many names are looked at in all for "did you mean", which takes its time.
constexpr std::size_t mostCandidates = 200000;

std::string counted(std::size_t number, const char* what) {
    return fmt::format("{} {}{}", number, what, number == 1 ? "" : "s");
}

// Finds what is wrong with one class.
class ClassCheck {
  public:
    ClassCheck(const Plan& plan, const StageGraph& graph, std::vector<Diagnostic>& found)
        : plan_(plan),
          graph_(graph),
          class_(graph.stageClass()),
          found_(found),
          hasDeadline_(class_.deadline > 0.0 && class_.deadline < forever) {}

    void run() {
        missingStages();
        knots();
        neverStarts();
        holds();
        freezes();
        becomesCritical();
        for (const PlanStage& stage : class_.stages) {
            const std::size_t s = static_cast<std::size_t>(&stage - class_.stages.data());
            limits(s);
            autoCompletion(s);
            tooLong(s);
            neverReports(s);
        }
        waitsForever();
        deadline();
    }

  private:
    using Reason = StageGraph::Reason;

    // What is found. The place of a participant or a stage may be nowhere in plans made by hand.

    Diagnostic& find(const char* rule, Severity severity, Place place, std::string text) {
        found_.push_back({severity, plan_.file, place, rule, std::move(text), {}});
        return found_.back();
    }

    // Counts those of a rule; false when there were enough of them.
    bool another(std::size_t& number) const { return ++number <= mostOfAKind; }
    void andMore(const char* rule, Severity severity, std::size_t number, const char* what) {
        if (number > mostOfAKind)
            find(rule, severity, class_.stages.front().place,
                 fmt::format("there are {} more {}{}, which are not shown", number - mostOfAKind,
                             what, ofClass()));
    }

    // Words.

    // Nobody needs to know that there are classes while there is one.
    std::string ofClass() const {
        return plan_.classes.size() == 1 ? "" : " of class " + inQuotes(class_.name);
    }
    std::string classOrPlan() const {
        return plan_.classes.size() == 1 ? "the plan" : "class " + inQuotes(class_.name);
    }
    std::string name(std::size_t s) const { return inQuotes(graph_.stage(s).name); }
    std::string names(const Stages& stages) const {
        std::vector<std::string> shown;
        for (std::size_t i = 0; i < std::min(mostNames, stages.size()); ++i)
            shown.push_back(name(stages[i]));
        std::string text = fmt::format("{}", fmt::join(shown, ", "));
        if (stages.size() > mostNames)
            text += fmt::format(" and {} more", stages.size() - mostNames);
        return text;
    }
    // The stages one after the other, without the middle of a long chain.
    template <class Link>
    std::string chain(const Stages& stages, Link link) const {
        std::string text;
        for (std::size_t i = 0; i < stages.size(); ++i) {
            if (i > 0) text += " -> ";
            if (i == mostLinks / 2 && stages.size() > mostLinks) {
                const std::size_t skipped = stages.size() - mostLinks;
                text += fmt::format("({} more) -> ", skipped);
                i += skipped;
            }
            text += link(i);
        }
        return text;
    }
    std::string chain(const Stages& stages) const {
        return chain(stages, [&](std::size_t i) { return name(stages[i]); });
    }
    // The same with how long each takes.
    std::string chain(const Stages& stages, const Schedule& made) const {
        return chain(stages, [&](std::size_t i) {
            const Schedule::Times& times = made.stages[stages[i]];
            return fmt::format("{} {}{}", name(stages[i]), timeText(times.duration),
                               times.gated ? " (waited for the critical stages to start)" : "");
        });
    }
    std::string who(const StageGraph::Wait& wait, std::size_t s) const {
        return wait.whose == nullptr
                   ? fmt::format("stage {}", name(s))
                   : fmt::format("the work of {} in stage {}", inQuotes(wait.whose->name), name(s));
    }
    // Where the plan makes the stage critical, for a note.
    Diagnostic::Related whyCritical(std::size_t s) const {
        std::size_t at = s;
        std::size_t links = 0;
        for (; graph_.criticalFor(at) != StageGraph::none; at = graph_.criticalFor(at)) ++links;
        std::string text = fmt::format("{} is critical here", name(at));
        if (links > 0) text += fmt::format(", and comes after {}", name(s));
        if (links > 1) text += fmt::format(" through {}", counted(links - 1, "other stage"));
        const std::vector<PlanParticipant>& all = graph_.stage(at).participants;
        const auto first = std::find_if(all.begin(), all.end(),
                                        [](const PlanParticipant& p) { return p.critical; });
        return {first == all.end() ? graph_.stage(at).place : first->place, std::move(text)};
    }

    // The rules.

    void missingStages() {
        std::size_t looked = 0;
        std::vector<std::string_view> candidates;
        for (std::size_t s = 0; s < graph_.size(); ++s) candidates.push_back(graph_.stage(s).name);
        for (std::size_t s = 0; s < graph_.size(); ++s) {
            for (const StageGraph::Wait& wait : graph_.missing(s)) {
                std::string remedy;
                looked += candidates.size();
                if (looked <= mostCandidates) remedy = suggestion(wait.said->stage, candidates);
                const PlanClass* const other = classWith(wait.said->stage);
                if (other != nullptr)
                    remedy = fmt::format(
                        "; class {} has one, but stages wait for stages of their "
                        "own class only",
                        inQuotes(other->name));
                if (remedy.empty()) remedy = "; add that stage, or do not come after it";
                find("missing-stage", Severity::error, wait.said->place,
                     fmt::format("{} comes after {}, which no stage{} is called{}", who(wait, s),
                                 inQuotes(wait.said->stage), ofClass(), remedy));
            }
        }
    }

    const PlanClass* classWith(std::string_view stage) const {
        constexpr std::size_t mostClasses = 20;  // each is searched
        if (plan_.classes.size() > mostClasses) return nullptr;
        for (const PlanClass& other : plan_.classes)
            if (&other != &class_ && other.stage(stage) != nullptr) return &other;
        return nullptr;
    }

    void knots() {
        for (const Stages& knot : graph_.knots()) {
            Stages circle = graph_.circle(knot);
            const std::size_t length = circle.size();
            circle.push_back(circle.front());
            const StageGraph::Wait& first = graph_.wait(circle[0], circle[1]);
            std::string text;
            if (length == 1)
                text = fmt::format("stage {} comes after itself, and can never start: {}",
                                   name(circle[0]), chain(circle));
            else
                text =
                    fmt::format("these stages can never start, since each comes after the next: {}",
                                chain(circle));
            if (knot.size() > length)
                text += fmt::format(" ({} come after each other in this and other ways: {})",
                                    counted(knot.size(), "stage"), names(knot));
            text += length == 1 ? "; remove that" : "; remove one of these";
            Diagnostic& found = find("cycle", Severity::error, first.said->place, std::move(text));
            for (std::size_t i = 0; i < std::min(length, mostRelated); ++i) {
                const StageGraph::Wait& wait = graph_.wait(circle[i], circle[i + 1]);
                found.related.push_back(
                    {wait.said->place, fmt::format("{} comes after {} here", who(wait, circle[i]),
                                                   name(circle[i + 1]))});
            }
        }
    }

    // Per stage that is the root of a reason of that kind, what waits for it in vain, in the order
    // of the plan; what is in one knot is one root.
    std::vector<std::pair<std::size_t, Stages>> victims(Reason::Kind kind) const {
        std::vector<std::size_t> place(graph_.size(), StageGraph::none);
        std::vector<std::pair<std::size_t, Stages>> found;
        const auto open = [&](std::size_t root) {
            place[root] = found.size();
            found.push_back({root, {}});
        };
        if (kind == Reason::Kind::knot) {
            for (const Stages& knot : graph_.knots()) {
                open(knot.front());
                for (const std::size_t s : knot) place[s] = place[knot.front()];
            }
        } else {
            for (std::size_t s = 0; s < graph_.size(); ++s)
                if (graph_.reason(s).kind == kind && graph_.reason(s).root == s) open(s);
        }
        for (std::size_t s = 0; s < graph_.size(); ++s) {
            const Reason& reason = graph_.reason(s);
            if (reason.kind == kind && reason.root != s)
                found[place[reason.root]].second.push_back(s);
        }
        return found;
    }

    Stages wayToRoot(std::size_t s) const {
        Stages way{s};
        while (graph_.reason(way.back()).next != StageGraph::none)
            way.push_back(graph_.reason(way.back()).next);
        return way;
    }

    void waysToRoot(Diagnostic& found, const Stages& victims) const {
        for (std::size_t i = 0; i < std::min(mostRelated, victims.size()); ++i)
            found.related.push_back(
                {graph_.stage(victims[i]).place,
                 fmt::format("each comes after the next: {}", chain(wayToRoot(victims[i])))});
    }

    void neverStarts() {
        for (const Reason::Kind kind : {Reason::Kind::missing, Reason::Kind::knot}) {
            for (const auto& [root, stages] : victims(kind)) {
                if (stages.empty()) continue;
                const std::string why =
                    kind == Reason::Kind::knot
                        ? fmt::format("{}, which is in a cycle", name(root))
                        : fmt::format("{}, which comes after {}", name(root),
                                      inQuotes(graph_.missing(root).front().said->stage) +
                                          ", which no stage is called");
                Diagnostic& found = find(
                    "never-starts", Severity::error, graph_.stage(stages.front()).place,
                    fmt::format("{} can never start: {} after {}; put that right first",
                                names(stages), stages.size() == 1 ? "it comes" : "they come", why));
                waysToRoot(found, stages);
            }
        }
    }

    void holds() {
        for (const auto& [root, stages] : victims(Reason::Kind::held)) {
            if (stages.empty()) continue;
            Diagnostic& found =
                find("held-chain", Severity::warning, graph_.heldBy(root)->place,
                     fmt::format("while do-not-start holds {}, {} cannot start either: {}",
                                 name(root), counted(stages.size(), "stage"), names(stages)));
            waysToRoot(found, stages);
        }
        if (!hasDeadline_) return;
        Stages held;
        for (std::size_t s = 0; s < graph_.size(); ++s)
            if (graph_.heldBy(s) != nullptr) held.push_back(s);
        if (held.empty()) return;
        find("held-deadline", Severity::warning, graph_.heldBy(held.front())->place,
             fmt::format("while do-not-start holds {}, the progression cannot complete: it ends "
                         "after its deadline of {} in a request for a reboot; release {} in time, "
                         "or let the deadline be infinity",
                         names(held), timeText(class_.deadline), held.size() == 1 ? "it" : "them"));
    }

    void freezes() {
        Stages others;
        for (std::size_t s = 0; s < graph_.size(); ++s)
            if (!graph_.critical(s)) others.push_back(s);
        if (others.empty()) return;
        const std::string frozen = fmt::format(
            "{} not critical, and {} until all critical ones have started: {}",
            others.size() == 1 ? "1 stage is" : fmt::format("{} stages are", others.size()),
            others.size() == 1 ? "waits" : "wait", names(others));
        for (const Reason::Kind kind :
             {Reason::Kind::missing, Reason::Kind::knot, Reason::Kind::held}) {
            for (const auto& [root, stages] : victims(kind)) {
                if (!graph_.critical(root)) continue;
                const bool held = kind == Reason::Kind::held;
                const Place place = held ? graph_.heldBy(root)->place : graph_.stage(root).place;
                const std::string text =
                    held ? fmt::format(
                               "while do-not-start holds {}, which is critical, nothing "
                               "starts that is not: {}; release it, or let it not be "
                               "critical",
                               name(root), frozen)
                         : fmt::format(
                               "stage {} is critical and can never start, so nothing ever "
                               "starts that is not critical: {}",
                               name(root), frozen);
                find("critical-freezes", Severity::error, place, text)
                    .related.push_back(whyCritical(root));
            }
        }
    }

    void becomesCritical() {
        std::size_t number = 0;
        for (std::size_t s = 0; s < graph_.size(); ++s) {
            if (graph_.criticalFor(s) == StageGraph::none || !another(number)) continue;
            find("becomes-critical", Severity::note, graph_.stage(s).place,
                 fmt::format("stage {} is critical, since {}, which is, comes after it", name(s),
                             name(graph_.criticalFor(s))))
                .related.push_back(whyCritical(s));
        }
        andMore("becomes-critical", Severity::note, number, "stages that become critical so");
    }

    // What the manager does when the stage is out of its limit.
    std::string outcome(std::size_t s) const {
        if (!graph_.critical(s)) return "the progression goes on without it";
        switch (class_.onTimeout) {
            case OnTimeout::proceed: return "the progression goes on without it";
            case OnTimeout::reboot: return "a reboot is requested, since the stage is critical";
            case OnTimeout::wait: break;
        }
        return "the progression is suspended until it is done, since the stage is critical";
    }
    Severity outcomeSeverity(std::size_t s) const {
        return graph_.critical(s) && class_.onTimeout == OnTimeout::reboot ? Severity::error
                                                                           : Severity::warning;
    }

    static const PlanParticipant& largestLimit(const PlanStage& stage) {
        return *std::max_element(
            stage.participants.begin(), stage.participants.end(),
            [](const PlanParticipant& a, const PlanParticipant& b) { return a.limit < b.limit; });
    }
    static Place limitPlace(const PlanParticipant& participant) {
        return participant.limitPlace.line > 0 ? participant.limitPlace : participant.place;
    }

    void limits(std::size_t s) {
        const PlanStage& stage = graph_.stage(s);
        if (stage.participants.empty()) return;
        const double limit = stageLimit(stage);
        const PlanParticipant& largest = largestLimit(stage);
        const bool matters = !std::all_of(stage.participants.begin(), stage.participants.end(),
                                          [](const PlanParticipant& p) { return takesNoTime(p); });
        if (limit < shortest && matters)
            find("zero-limit", limit > 0.0 ? Severity::warning : Severity::error,
                 limitPlace(largest),
                 fmt::format("stage {} has a limit of {}, so it times out {}, and {}; if it is to "
                             "have no limit, say infinity",
                             name(s), durationText(limit),
                             limit > 0.0 ? "almost at once" : "as soon as it starts", outcome(s)));
        for (const PlanParticipant& participant : stage.participants) {
            if (participant.limit >= largest.limit) continue;
            if (!(participant.place < participant.limitPlace)) continue;  // not said for it alone
            find("limit-without-effect", Severity::note, limitPlace(participant),
                 fmt::format("the limit of {} for {} has no effect: the largest limit in stage {} "
                             "counts, which is the {} of {}",
                             timeText(participant.limit), inQuotes(participant.name), name(s),
                             timeText(largest.limit), inQuotes(largest.name)));
        }
    }

    void autoCompletion(std::size_t s) {
        const double limit = stageLimit(graph_.stage(s));
        for (const PlanParticipant& participant : graph_.stage(s).participants) {
            if (!participant.autoComplete || *participant.autoComplete <= limit) continue;
            const Place place = participant.autoCompletePlace.line > 0
                                    ? participant.autoCompletePlace
                                    : participant.place;
            find("auto-complete-too-late", Severity::warning, place,
                 fmt::format("{} would be auto-completed after {}, but its stage {} is out of its "
                             "limit after {} already, and then {}; auto-complete it sooner, or "
                             "raise the limit",
                             inQuotes(participant.name), timeText(*participant.autoComplete),
                             name(s), timeText(limit), outcome(s)));
        }
    }

    static double least(const PlanParticipant& participant) {
        return std::min(leastTakes(participant), participant.autoComplete.value_or(forever));
    }

    void tooLong(std::size_t s) {
        const PlanStage& stage = graph_.stage(s);
        if (stage.participants.empty()) return;
        const PlanParticipant& slowest = *std::max_element(
            stage.participants.begin(), stage.participants.end(),
            [](const PlanParticipant& a, const PlanParticipant& b) {
                const auto takes = [](const PlanParticipant& participant) {
                    const double seconds = least(participant);
                    return seconds < forever ? seconds : 0.0;  // never-reports tells of them
                };
                return takes(a) < takes(b);
            });
        const double takes = least(slowest);
        if (takes == forever || takes <= stageLimit(stage)) return;
        find("takes-too-long", outcomeSeverity(s), slowest.place,
             fmt::format("{} takes {}{}, but its stage {} is out of its limit after {}, and then "
                         "{}; raise the limit",
                         inQuotes(slowest.name), exact(slowest) ? "" : "at least ", timeText(takes),
                         name(s), timeText(stageLimit(stage)), outcome(s)));
    }
    static bool exact(const PlanParticipant& participant) {
        return participant.takes && participant.takes->kind == Takes::Kind::fixed;
    }

    // Without a limit and a deadline, waitsForever() tells of them.
    void neverReports(std::size_t s) {
        const double limit = stageLimit(graph_.stage(s));
        for (const PlanParticipant& participant : graph_.stage(s).participants) {
            if (leastTakes(participant) < forever) continue;
            if (participant.autoComplete && *participant.autoComplete <= limit) continue;
            const bool waits =
                limit == forever || (graph_.critical(s) && class_.onTimeout == OnTimeout::wait);
            if (waits && !participant.autoComplete && !hasDeadline_) continue;
            const bool harmless = !waits && outcomeSeverity(s) != Severity::error;
            std::string text = fmt::format("{} never reports: ", inQuotes(participant.name));
            if (limit == forever)
                text += fmt::format(
                    "stage {}, which has no limit, lasts until the deadline of {}, "
                    "and then a reboot is requested",
                    name(s), timeText(class_.deadline));
            else
                text += fmt::format("stage {} is out of its limit after {}, and then {}", name(s),
                                    timeText(limit), outcome(s));
            find("never-reports", harmless ? Severity::note : Severity::warning, participant.place,
                 std::move(text));
        }
    }

    // Whether nothing but its own report completes it.
    static bool waitedFor(const PlanParticipant& participant) {
        return !participant.autoComplete && !takesNoTime(participant);
    }

    void waitsForever() {
        if (hasDeadline_) return;
        // What is suspended when it is out of its limit.
        Stages suspended;
        const PlanParticipant* first = nullptr;
        for (std::size_t s = 0; s < graph_.size(); ++s) {
            const PlanStage& stage = graph_.stage(s);
            const bool suspends = class_.onTimeout == OnTimeout::wait && graph_.critical(s);
            for (const PlanParticipant& participant : stage.participants) {
                if (!waitedFor(participant)) continue;
                if (suspends) {
                    if (first == nullptr) first = &participant;
                    suspended.push_back(s);
                    break;
                }
                if (stageLimit(stage) < forever || !unsure(participant)) continue;
                find("waits-forever", Severity::error, limitPlace(participant),
                     fmt::format("stage {} has no limit, and {} has no deadline: should {} "
                                 "not report, nothing would ever end the wait; give one of them, "
                                 "or auto-complete {}",
                                 name(s), classOrPlan(), inQuotes(participant.name),
                                 inQuotes(participant.name)));
                break;
            }
        }
        if (suspended.empty()) return;
        Diagnostic& found =
            find("waits-forever", Severity::error, first->place,
                 fmt::format(
                     "on-timeout is wait, and {} has no deadline: should a critical stage "
                     "not be done, nothing would ever end the wait ({}); give a deadline, or let "
                     "on-timeout be reboot or continue",
                     classOrPlan(), names(suspended)));
        found.related.push_back(whyCritical(suspended.front()));
    }
    // Whether it may well not report. What is simulated does, if nothing else is said.
    static bool unsure(const PlanParticipant& participant) {
        if (participant.kind != PlanParticipant::Kind::simulated) return true;
        const Takes takes = participant.takes.value_or(assumedTakes);
        return takes.kind == Takes::Kind::never || takes.lost > 0.0;
    }

    // Whether the deadline comes first. At one time it does; times are exact to the microsecond.
    bool missed(const Schedule& made) const { return made.end > class_.deadline - 0.5e-6; }
    // What is to be seen of that where both are written alike.
    std::string tie(const Schedule& made) const {
        return timeText(made.end) == timeText(class_.deadline)
                   ? ", and what ends with the deadline is too late"
                   : "";
    }

    void deadline() {
        if (!hasDeadline_) return;
        const Schedule least = schedule(graph_, leastDurations(graph_), Schedule::Gate::samePass);
        if (missed(least)) {
            find("takes-too-long", Severity::error, class_.deadlinePlace,
                 fmt::format("the deadline of {} is missed, and a reboot requested, even if "
                             "everybody takes only as long as the plan says: these stages need "
                             "{}{}: {}; raise the deadline",
                             timeText(class_.deadline), timeText(least.end), tie(least),
                             chain(least.chain(least.last), least)));
            return;
        }
        const Schedule said = schedule(graph_, saidDurations(graph_));
        if (missed(said)) {
            find("takes-too-long", Severity::error, class_.deadlinePlace,
                 fmt::format("the deadline of {} is missed, and a reboot requested, if everybody "
                             "takes what it typically takes: these stages need {}{}: {}; raise "
                             "the deadline",
                             timeText(class_.deadline), timeText(said.end), tie(said),
                             chain(said.chain(said.last), said)));
            return;
        }
        // Whoever gives no limit means the deadline to be it.
        const std::vector<double> longest = longestDurations(graph_);
        const bool endless = std::find(longest.begin(), longest.end(), forever) != longest.end();
        const Schedule made =
            schedule(graph_, longest, Schedule::Gate::latest, Schedule::Endless::nothing);
        if (!missed(made)) return;
        find("deadline-too-short", Severity::warning, class_.deadlinePlace,
             fmt::format("the deadline of {} may pass, and a reboot be requested, with every stage "
                         "within its limit: the limits on this way add up to {}{}{}: {}; lower "
                         "limits, or raise the deadline",
                         timeText(class_.deadline), timeText(made.end),
                         endless ? " without those that are infinity" : "", tie(made),
                         chain(made.chain(made.last), made)));
    }

    const Plan& plan_;
    const StageGraph& graph_;
    const PlanClass& class_;
    std::vector<Diagnostic>& found_;
    bool hasDeadline_;
};

}  // namespace

CheckedClass::CheckedClass(const PlanClass& stageClass)
    : graph(stageClass),
      typical(schedule(graph, typicalDurations(graph))),
      longest(schedule(graph, longestDurations(graph), Schedule::Gate::latest)) {}

CheckedPlan check(const Plan& plan) {
    CheckedPlan checked;
    checked.classes.reserve(plan.classes.size());
    for (const PlanClass& stageClass : plan.classes) {
        checked.classes.emplace_back(stageClass);
        ClassCheck(plan, checked.classes.back().graph, checked.diagnostics).run();
    }
    std::stable_sort(checked.diagnostics.begin(), checked.diagnostics.end(),
                     [](const Diagnostic& a, const Diagnostic& b) { return a.place < b.place; });
    return checked;
}

const std::vector<CheckRule>& checkRules() {
    static const std::vector<CheckRule> rules{
        {"auto-complete-too-late", Severity::warning,
         "A participant is auto-completed later than its stage times out"},
        {"becomes-critical", Severity::note,
         "A stage is critical because a critical stage comes after it"},
        {"critical-freezes", Severity::error,
         "A critical stage can never start, and holds back all stages that are not critical"},
        {"cycle", Severity::error, "Stages come after each other in a circle"},
        {"deadline-too-short", Severity::warning,
         "The limits of the stages add up to the deadline or more"},
        {"held-chain", Severity::warning, "A do-not-start entry holds back other stages too"},
        {"held-deadline", Severity::warning,
         "A stage is held, and the deadline ends in a reboot for it"},
        {"limit-without-effect", Severity::note,
         "A participant's limit is smaller than another's in the same stage"},
        {"missing-stage", Severity::error, "A stage comes after one that does not exist"},
        {"never-reports", Severity::warning, "A participant never reports"},
        {"never-starts", Severity::error,
         "Stages come after one that can never start, and so never start either"},
        {"takes-too-long", Severity::error,
         "Participants take longer than a limit or the deadline allows"},
        {"waits-forever", Severity::error,
         "A stage may wait for a report that never comes, and nothing would end that"},
        {"zero-limit", Severity::error, "A stage has practically no time"},
    };
    return rules;
}

std::string_view severityName(Severity severity) {
    switch (severity) {
        case Severity::error: return "error";
        case Severity::warning: return "warning";
        case Severity::note: break;
    }
    return "note";
}

std::size_t count(const std::vector<Diagnostic>& diagnostics, Severity severity) {
    return static_cast<std::size_t>(
        std::count_if(diagnostics.begin(), diagnostics.end(),
                      [&](const Diagnostic& d) { return d.severity == severity; }));
}

}  // namespace Host
