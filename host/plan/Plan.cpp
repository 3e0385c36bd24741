#include "host/plan/Plan.h"

#include <algorithm>

namespace Host {

namespace {

template <class Members>
auto named(const Members& members, std::string_view name) -> decltype(members.data()) {
    const auto found = std::find_if(members.begin(), members.end(),
                                    [&](const auto& member) { return member.name == name; });
    return found == members.end() ? nullptr : &*found;
}

}  // namespace

bool PlanStage::critical() const {
    return std::any_of(participants.begin(), participants.end(),
                       [](const PlanParticipant& participant) { return participant.critical; });
}

const PlanStage* PlanClass::stage(std::string_view wanted) const { return named(stages, wanted); }

const PlanClass* Plan::stageClass(std::string_view wanted) const { return named(classes, wanted); }

}  // namespace Host
