// Which stages of a class wait for which, and what follows from that before anything runs.
#pragma once

#include <cstddef>
#include <vector>

#include "host/plan/Plan.h"

namespace Host {

// Stages are numbered in the order of the plan. The class outlives the graph.
class StageGraph {
  public:
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    explicit StageGraph(const PlanClass& stageClass);

    const PlanClass& stageClass() const { return class_; }
    std::size_t size() const { return class_.stages.size(); }
    const PlanStage& stage(std::size_t s) const { return class_.stages[s]; }
    // Whether it is critical: for a participant of its own, or because a critical stage waits for
    // it, itself or through others.
    bool critical(std::size_t s) const { return critical_[s]; }
    // The critical stage that waits for it and made it critical; none when it is critical for a
    // participant of its own, or not at all.
    std::size_t criticalFor(std::size_t s) const { return criticalFor_[s]; }

    // A stage that waits for another, and where the plan says so.
    struct Wait {
        std::size_t stage;             // the one that is waited for; none: no stage has that name
        const StageReference* said;    // never null
        const PlanParticipant* whose;  // whose work depends on it; null: the whole stage's
    };
    // Each stage that it waits for once, in the order of the plan.
    const std::vector<Wait>& after(std::size_t s) const { return after_[s]; }
    // What it waits for in vain: a name that no stage has.
    const std::vector<Wait>& missing(std::size_t s) const { return missing_[s]; }
    // The stages that wait for it.
    const std::vector<std::size_t>& before(std::size_t s) const { return before_[s]; }
    // The do-not-start entry that holds it, or null.
    const StageReference* heldBy(std::size_t s) const { return heldBy_[s]; }

    // The largest sets of stages in which each waits for every other, if only through others; a
    // stage that waits for itself is one. Each in the order of the plan.
    const std::vector<std::vector<std::size_t>>& knots() const { return knots_; }
    // A shortest circle of waits within such a set: each stage waits for the next one, and the last
    // for the first. Of a very large set, a shortest one through its first stage.
    std::vector<std::size_t> circle(const std::vector<std::size_t>& knot) const;
    // The wait of one for the other, which there is.
    const Wait& wait(std::size_t of, std::size_t on) const;

    // Why a stage can never start.
    struct Reason {
        enum class Kind { none, missing, knot, held };
        Kind kind = Kind::none;
        // The stage that waits for a missing one, is in a knot, or is held; itself perhaps.
        std::size_t root = StageGraph::none;
        // On the way there, the stage that it waits for; none at the root.
        std::size_t next = StageGraph::none;
    };
    // A hold counts only where nothing else is in the way: it may be lifted.
    const Reason& reason(std::size_t s) const { return reasons_[s]; }

  private:
    void findWaits();
    void findCritical();
    void findKnots();
    void findReasons();
    void spread(std::vector<std::size_t> roots, Reason::Kind kind);

    const PlanClass& class_;
    std::vector<std::vector<Wait>> after_;
    std::vector<std::vector<Wait>> missing_;
    std::vector<std::vector<std::size_t>> before_;
    std::vector<bool> critical_;
    std::vector<std::size_t> criticalFor_;
    std::vector<const StageReference*> heldBy_;
    std::vector<std::vector<std::size_t>> knots_;
    std::vector<std::size_t> knotOf_;  // per stage; none for most
    std::vector<Reason> reasons_;
};

}  // namespace Host
