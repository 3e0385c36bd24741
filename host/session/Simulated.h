// Participants of a simulation: nothing does their work, and their reports come when the plan says.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

#include "host/session/Session.h"

namespace Host {

// Says how long parts take: by default each its typical time, and none is lost.
class Durations {
  public:
    // The plan outlives it.
    explicit Durations(const Plan& plan);

    // From now on each part's duration is drawn. It depends on these two numbers and the part's
    // place in the plan alone: not on who else takes part in what, nor on the order of starts.
    void draw(std::uint64_t seed, std::uint64_t run);

    // The participant takes that long, in one instance, or (none) in each of which nothing else is
    // said. Seconds; infinity: it never reports.
    void set(const PlanParticipant& participant, std::optional<std::string> instance,
             double seconds);
    // The participant never reports, in no instance, whatever was said of it.
    void lose(const PlanParticipant& participant);

    // Seconds; infinity: it never reports.
    double of(const Part& part) const;

    // How many participants the plan says nothing about; nor has anybody since.
    std::size_t assumed() const;

  private:
    struct Draw {
        std::uint64_t seed;
        std::uint64_t run;
    };

    using Places = std::unordered_map<const PlanParticipant*, std::uint64_t>;

    std::shared_ptr<const Places> places_;  // in the plan
    std::optional<Draw> draw_;
    std::map<const PlanParticipant*, double> set_;
    std::map<std::pair<const PlanParticipant*, std::string>, double> setInInstance_;
};

class Simulated final : public Performer {
  public:
    // The durations outlive it.
    explicit Simulated(const Durations& durations) : durations_(durations) {}

    void start(Session& session, const Part& part) override;

  private:
    const Durations& durations_;
};

}  // namespace Host
