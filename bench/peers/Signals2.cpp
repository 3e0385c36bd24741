// Boost.Signals2, as it comes, and without its lock, since ours has none.
#include <boost/signals2/dummy_mutex.hpp>
#include <boost/signals2/signal.hpp>
#include <boost/signals2/signal_type.hpp>

#include "bench/Notification.h"

namespace {

namespace signals2 = boost::signals2;

template <class Signal>
class Signals2 {
  public:
    explicit Signals2(std::int64_t slots) {
        for (std::int64_t i = 0; i < slots; ++i) connect();
    }
    void valueIs(double value) {
        if (value == value_) return;
        value_ = value;
        changed_();
    }
    void join() { further_ = connect(); }
    void leave() { further_.disconnect(); }
    std::int64_t told() const { return told_.times(); }

  private:
    signals2::connection connect() {
        return changed_.connect([this] { told_.tell(); });
    }

    Bench::Told told_;
    double value_ = 0;
    Signal changed_;
    signals2::connection further_;
};

using Unlocked =
    signals2::signal_type<void(), signals2::keywords::mutex_type<signals2::dummy_mutex>>::type;
const bool plain = Bench::registered<Signals2<signals2::signal<void()>>>("signals2");
const bool unlocked = Bench::registered<Signals2<Unlocked>>("signals2-unlocked");

}  // namespace
