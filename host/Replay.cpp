#include "host/Replay.h"

#include "host/JsonLines.h"

namespace Host {

Replay::Replay(View& view)
    : view_(view),
      environment_(view),
      manager_(clock_, environment_),
      scope_(manager_),
      observer_(view),
      inputs_(tree_, observer_) {
    view_.onBegin(tree_);
}

bool Replay::apply(const Input& input) {
    if (input.at > manager_.currentTime()) manager_.runUntil(input.at);
    inputs_.apply(input);
    if (input.op == Input::Op::settle) manager_.settle();
    if (input.op != Input::Op::end) return true;
    manager_.settle();
    ended_ = true;
    return false;
}

void Replay::finish() {
    if (!ended_) manager_.runUntilIdle();
    view_.onEnd(manager_.currentTime(), tree_);
}

void replay(std::istream& journal, View& view) {
    Replay run(view);
    JournalReader reader(journal);
    try {
        for (;;) {
            // Whoever feeds the journal line by line sees the answer to each.
            if (journal.rdbuf()->in_avail() <= 0) view.flush();
            const std::optional<Input> input = reader.next();
            if (!input || !run.apply(*input)) break;
        }
        run.finish();
    } catch (const MalformedInput& e) {
        view.flush();
        throw JournalError(reader.line(), e.what());
    } catch (...) {
        view.flush();
        throw;
    }
}

void replay(std::istream& journal, std::ostream& out) {
    JsonLines view(out);
    replay(journal, view);
}

}  // namespace Host
