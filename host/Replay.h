// Runs the manager on a journal, in virtual time.
#pragma once

#include <istream>
#include <optional>
#include <ostream>

#include "host/Inputs.h"
#include "host/Journal.h"
#include "host/Observations.h"
#include "host/Tree.h"
#include "runtime/ActivityManager.h"

namespace Host {

// A manager with its tree, its own virtual clock from 0, and a view of what it does. While it
// lives, its activity manager is the thread's.
class Replay {
  public:
    explicit Replay(View& view);
    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;

    // Inputs with one time are applied back to back: what is due then fires after them, or at a
    // settle between them. Times never go back. Returns false for an `end`, after which there is
    // nothing to apply. Raises MalformedInput.
    bool apply(const Input& input);

    // For whoever moves time on: when the next timer is due (infinity: none is armed), to fire all
    // that is due before `time` and make it `time`, and to fire what is due then.
    double next() const { return manager_.clock()->nextTime(); }
    void runUntil(double time) { manager_.runUntil(time); }
    void settle() { manager_.settle(); }

    // Goes on until no timer is armed, unless there was an `end`, and tells the view that the feed
    // has ended.
    void finish();

    const Tree& tree() const { return tree_; }
    double time() const { return manager_.currentTime(); }

  private:
    View& view_;
    Orv::VirtualTime clock_;
    FeedEnvironment environment_;
    Orv::ActivityManager manager_;
    Orv::ActivityScope scope_;
    Tree tree_;
    FeedObserver observer_;
    Inputs inputs_;
    bool ended_ = false;
};

// Replays a whole journal, reading it as it goes. Raises JournalError for the first line that
// cannot be applied: what was done before it has been shown, and flushed; the view is not told of
// an end.
void replay(std::istream& journal, View& view);

// The same, with observations as JSON Lines on `out`.
void replay(std::istream& journal, std::ostream& out);

}  // namespace Host
