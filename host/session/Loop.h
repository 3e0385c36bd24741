// One thread's waiting: for descriptors, for signals, and for a time.
#pragma once

#include <functional>
#include <limits>
#include <memory>
#include <vector>

namespace Host {

class Loop {
  public:
    static constexpr double never = std::numeric_limits<double>::infinity();

    // Calls back while it lives; within a call back it may be destroyed.
    class Watch {
      public:
        Watch() = default;
        virtual ~Watch();
        Watch(const Watch&) = delete;
        Watch& operator=(const Watch&) = delete;
    };

    Loop();
    ~Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    // Seconds since the loop was made, by a clock that nobody sets.
    double now() const;

    // Calls back whenever something can be read, or the end has come. The descriptor stays its
    // owner's, and outlives the watch. Null for what cannot be waited for, since it can always be
    // read, such as a regular file. Raises system_error.
    std::unique_ptr<Watch> readable(int descriptor, std::function<void()> call);

    // Calls back for each of these signals, which have no other effect meanwhile.
    std::unique_ptr<Watch> signals(const std::vector<int>& numbers, std::function<void(int)> call);

    // Waits until something has happened or it is that time, calls back, and returns: soon, also
    // while things never cease to happen. All calls back come from here.
    void wait(double until);

  private:
    class State;
    std::unique_ptr<State> state_;
};

}  // namespace Host
