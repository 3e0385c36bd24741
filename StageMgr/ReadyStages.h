// Which stages of an instance could start now, without a look at all of them.
#pragma once

#include <cstdint>
#include <vector>

#include "StageMgr/PlaceSet.h"
#include "model/InstanceStatus.h"
#include "model/Status.h"

namespace Stage {

class InstanceStatusSm;

// An InstanceStatusSm has one. For each stage of the class it counts the dependencies that are not
// complete in the instance, and keeps the stages that wait for none in their order. It is told
// while a change is stored, so that it always says what a walk over the stages would find.
//
// Where it cannot, it says so, and the instance walks: when there was no memory, and while a stage
// is complete that is not active, which only a host can bring about.
class ReadyStages final : private Status::Index, private InstanceStatus::Index {
  public:
    explicit ReadyStages(const InstanceStatusSm& instance) : instance_(instance) {}
    ~ReadyStages() { close(); }
    ReadyStages(const ReadyStages&) = delete;
    ReadyStages& operator=(const ReadyStages&) = delete;

    // Begins to follow these two, with all that they hold; null for either: nothing.
    void open(Orv::Ptr<const Status> status, Orv::Ptr<InstanceStatus> instanceStatus);
    void close();

    bool usable() const {
        return status_ && !failed_ && completeInactive_ == 0 && status_->indexed();
    }
    // The rest holds while it is usable.
    bool someInactive() const { return inactive_ != 0; }
    bool someCriticalInactive() const { return criticalInactive_ != 0; }
    bool someActiveIncomplete() const { return activeIncomplete_ != 0; }
    // Every dependency of the stage is complete. The stage has to be one of the class's.
    bool dependenciesComplete(const StageStatus& stage) const {
        return stages_[stage.place()].waiting == 0;
    }
    bool contains(const StageStatus& stage) const {
        return stage.place() < stages_.size() && stages_[stage.place()].stage == &stage;
    }
    // The first stage at `from` or behind that is not active and waits for no other stage; null
    // when there is none.
    StageStatus* next(std::uint32_t from, bool criticalOnly) const;
    // Counts how often the stages have got new places.
    std::uint32_t renumberings() const { return renumberings_; }

    // The stage has a reactor that is complete, or has it no more.
    void completeIs(const StageStatus& stage, bool complete) noexcept;

  private:
    struct Part {
        StageStatus* stage = nullptr;
        std::uint32_t waiting = 0;  // dependencies that are not complete
        bool active = false;
        bool complete = false;
        bool critical = false;

        bool ready() const { return stage != nullptr && !active && waiting == 0; }
    };

    void stageStored(StageStatus& stage, bool present) noexcept override;
    void placesStored() noexcept override;
    void dependencyStored(StageStatus& stage, const Orv::String& dependency,
                          bool present) noexcept override;
    void criticalStored(StageStatus& stage) noexcept override;
    void activeStageStored(const StageStatus& stage, bool present) noexcept override;

    void fill() noexcept;
    void add(StageStatus& stage);
    // The class's stage of that name, which need not be that very one; null when there is none.
    const StageStatus* member(const StageStatus& stage) const;
    // Lets `alter(part)` change what is known of the stage, and what follows from that.
    template <class Alter>
    void change(const StageStatus& stage, Alter&& alter) noexcept;
    void count(const Part& part, std::size_t step) noexcept;

    const InstanceStatusSm& instance_;
    Orv::Ptr<const Status> status_;
    Orv::Ptr<InstanceStatus> instanceStatus_;
    bool failed_ = false;
    std::uint32_t renumberings_ = 0;
    std::size_t inactive_ = 0;
    std::size_t criticalInactive_ = 0;
    std::size_t activeIncomplete_ = 0;
    std::size_t completeInactive_ = 0;
    std::vector<Part> stages_;  // by place
    PlaceSet readyCritical_;
    PlaceSet readyOther_;
};

}  // namespace Stage
