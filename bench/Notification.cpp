// A change of an entity's attribute, beside the plainest thing that tells as many: a vector of
// pointers to observers.
#include "bench/Notification.h"

#include <algorithm>
#include <deque>
#include <vector>

#include "model/StageStatus.h"

namespace {

class Ours {
  public:
    explicit Ours(std::int64_t notifiees) {
        for (std::int64_t i = 0; i < notifiees; ++i)
            notifiees_.emplace_back(told_).notifierIs(entity_);
    }
    void valueIs(double value) { entity_->timeoutIs(value); }
    void join() { further_.notifierIs(entity_); }
    void leave() { further_.notifierIs(nullptr); }
    std::int64_t told() const { return told_.times(); }

  private:
    struct Notifiee final : Stage::StageStatus::NotifieeConst {
        explicit Notifiee(Bench::Told& of) : told(of) {}
        void onTimeout() override { told.tell(); }
        Bench::Told& told;
    };

    Bench::Told told_;
    const Orv::Ptr<Stage::StageStatus> entity_ = Orv::make<Stage::StageStatus>("stage");
    std::deque<Notifiee> notifiees_;
    Notifiee further_{told_};
};
const bool ours = Bench::registered<Ours>("ours");

class Observers {
  public:
    explicit Observers(std::int64_t observers) {
        for (std::int64_t i = 0; i < observers; ++i)
            connected_.push_back(&observers_.emplace_back(told_));
    }
    void valueIs(double value) {
        if (value == value_) return;
        value_ = value;
        for (Bench::Observer* const observer : connected_) observer->onValue();
    }
    void join() { connected_.push_back(&further_); }
    void leave() { connected_.erase(std::find(connected_.begin(), connected_.end(), &further_)); }
    std::int64_t told() const { return told_.times(); }

  private:
    struct Counting final : Bench::Observer {
        explicit Counting(Bench::Told& of) : told(of) {}
        void onValue() override { told.tell(); }
        Bench::Told& told;
    };

    Bench::Told told_;
    double value_ = 0;
    std::vector<Bench::Observer*> connected_;
    std::deque<Counting> observers_;
    Counting further_{told_};
};
const bool observers = Bench::registered<Observers>("observers");

}  // namespace
