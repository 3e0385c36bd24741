#include "host/session/Simulated.h"

#include <algorithm>
#include <cmath>

#include "host/plan/Schedule.h"
#include "host/session/Random.h"

namespace Host {

Durations::Durations(const Plan& plan) {
    const auto places = std::make_shared<Places>();
    for (const PlanClass& stageClass : plan.classes)
        for (const PlanStage& stage : stageClass.stages)
            for (const PlanParticipant& participant : stage.participants)
                places->emplace(&participant, places->size());
    places_ = places;
}

void Durations::draw(std::uint64_t seed, std::uint64_t run) { draw_ = {seed, run}; }

void Durations::set(const PlanParticipant& participant, std::optional<std::string> instance,
                    double seconds) {
    if (instance)
        setInInstance_[{&participant, *instance}] = seconds;
    else
        set_[&participant] = seconds;
}

void Durations::lose(const PlanParticipant& participant) {
    set_[&participant] = Session::never;
    std::erase_if(setInInstance_, [&](const auto& set) { return set.first.first == &participant; });
}

double Durations::of(const Part& part) const {
    if (!setInInstance_.empty()) {
        const auto found = setInInstance_.find({part.participant, part.instance});
        if (found != setInInstance_.end()) return found->second;
    }
    if (const auto found = set_.find(part.participant); found != set_.end()) return found->second;
    if (!draw_) return typicalTakes(*part.participant);
    const auto& instances = part.stageClass->instances;
    const auto instance =
        std::find_if(instances.begin(), instances.end(),
                     [&](const PlanInstance& other) { return other.name == part.instance; });
    Random random{draw_->seed, draw_->run, places_->at(part.participant),
                  static_cast<std::uint64_t>(instance - instances.begin())};
    return sample(part.participant->takes.value_or(assumedTakes), random);
}

std::size_t Durations::assumed() const {
    return static_cast<std::size_t>(
        std::count_if(places_->begin(), places_->end(), [&](const auto& place) {
            return !place.first->takes && set_.find(place.first) == set_.end();
        }));
}

void Simulated::start(Session& session, const Part& part) {
    const double seconds = durations_.of(part);
    // Never at once: a chain of stages that take no time would go as deep as it is long.
    if (!std::isinf(seconds)) session.scheduleReport(session.time() + seconds, part);
}

}  // namespace Host
