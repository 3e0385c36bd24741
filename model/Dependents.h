// Which stages depend on one of a name.
#pragma once

#include <memory>

#include "model/StageStatus.h"
#include "runtime/OrderedMap.h"

namespace Stage {

// Most often it is one stage, which takes no memory of its own.
class Dependents {
  public:
    bool empty() const { return only_ == nullptr && !all_; }
    // May throw std::bad_alloc.
    void add(StageStatus& stage) {
        if (empty()) {
            only_ = &stage;
            return;
        }
        if (!all_) {
            all_ = std::make_unique<Map>();
            all_->set(only_->key(), only_);
            only_ = nullptr;
        }
        all_->set(stage.key(), &stage);
    }
    // The stage has to be one of them.
    void remove(const StageStatus& stage) {
        if (!all_) {
            Orv::assertThat(only_ == &stage, "only_ == &stage");
            only_ = nullptr;
            return;
        }
        const bool held = all_->del(stage.key());
        Orv::assertThat(held, "held");
        if (all_->empty()) all_.reset();
    }
    // Calls visit(StageStatus&) with each, in no particular order; they must not change meanwhile.
    template <class Visit>
    void each(Visit&& visit) const {
        if (only_ != nullptr) visit(*only_);
        if (all_)
            for (const auto& [name, stage] : *all_) visit(*stage);
    }

  private:
    using Map = Orv::OrderedMap<Orv::Name, StageStatus*>;
    StageStatus* only_ = nullptr;
    std::unique_ptr<Map> all_;
};

}  // namespace Stage
