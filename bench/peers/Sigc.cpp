// libsigc++.
#include <sigc++/sigc++.h>

#include "bench/Notification.h"

namespace {

class Sigc {
  public:
    explicit Sigc(std::int64_t slots) {
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
    sigc::connection connect() {
        return changed_.connect(sigc::mem_fun(told_, &Bench::Told::tell));
    }

    Bench::Told told_;
    double value_ = 0;
    sigc::signal<void> changed_;
    sigc::connection further_;
};
const bool sigc = Bench::registered<Sigc>("sigc++");

}  // namespace
