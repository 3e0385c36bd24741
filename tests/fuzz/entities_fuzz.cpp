// fuzz-entities: the bytes are operations on the entities of a real manager, between turns of its
// loop and inside of its callbacks. Its invariants hold after every instant. Where nothing is done
// inside of a callback and the manager is never made anew, the independent model does the same; and
// everywhere a manager that walks over all its stages does as one that asks its indexes.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "host/Inputs.h"
#include "host/Journal.h"
#include "host/JsonLines.h"
#include "host/Observations.h"
#include "host/Tree.h"
#include "runtime/ActivityManager.h"
#include "runtime/Error.h"
#include "tests/conformance/Invariants.h"
#include "tests/conformance/JournalText.h"
#include "tests/conformance/Model.h"
#include "tests/conformance/Walks.h"
#include "tests/fuzz/Assertions.h"
#include "tests/fuzz/Operations.h"
#include "tests/fuzz/Target.h"

namespace {

using fuzz::Operation;
using Change = Operation::Change;

// More says nothing that less would not, and takes long.
constexpr std::size_t mostOperations = 120;

// Calls back for whatever changes in the trees, own changes included, and for what reaches the
// world outside, right when it does.
class Watcher final : public Host::View, public Orv::TreeObserver {
  public:
    std::function<void(Change)> happens = [](Change) {};
    std::function<void(const Stage::InstanceLog&)> logged = [](const auto&) {};
    std::function<void(const Orv::Entity&, const Orv::Attribute&)> written = [](const auto&,
                                                                                const auto&) {};
    // Keeps the feed as text.
    void keeps() { lines_.emplace(out_); }
    std::string text() {
        if (lines_) lines_->flush();
        return out_.str();
    }

    void onScalar(double t, const Orv::Entity& entity, const Orv::Attribute& attribute) override {
        if (lines_) lines_->onScalar(t, entity, attribute);
        written(entity, attribute);
    }
    void onMember(double t, const Orv::Entity& entity, const Orv::Attribute& attribute,
                  const Orv::Value& key) override {
        if (lines_) lines_->onMember(t, entity, attribute, key);
    }
    void onEntry(double t, const Orv::Entity& entry, bool present) override {
        if (lines_) lines_->onEntry(t, entry, present);
    }
    void onLog(double t, const Stage::InstanceLog& log) override {
        if (lines_) lines_->onLog(t, log);
        logged(log);
    }
    void onMessage(double t, const Orv::LogHandle& message, const Orv::String& text) override {
        if (lines_) lines_->onMessage(t, message, text);
        happens(Change::outside);
    }
    void onWatchdog(double t, const Halbe::HalbeInfo& watchdog) override {
        if (lines_) lines_->onWatchdog(t, watchdog);
        happens(Change::outside);
    }
    void onPrint(double t, const Orv::String& line) override {
        if (lines_) lines_->onPrint(t, line);
        happens(Change::outside);
    }
    void onError(double t, const char* what) override {
        if (lines_) lines_->onError(t, what);
        if (fuzz::shown()) fuzz::show(std::string("    error: ") + what);
    }
    void onEnd(double t, const Host::Tree& tree) override {
        if (lines_) lines_->onEnd(t, tree);
    }
    // An assertion has failed; what is kept ends here.
    void flush() override { lines_.reset(); }

    void onScalar(const Orv::Entity&, const Orv::Attribute&) override { happens(Change::scalar); }
    void onMember(const Orv::Entity&, const Orv::Attribute&, const Orv::Value&) override {
        happens(Change::member);
    }
    void onEnqueued(const Orv::Entity&, const Orv::Attribute&) override { happens(Change::line); }
    void onEntry(const Orv::Dir&, const Orv::Entity&, bool) override { happens(Change::entry); }

  private:
    std::ostringstream out_;
    std::optional<Host::JsonLines> lines_;
};

const char* kindText(Change change) {
    switch (change) {
        case Change::any: return "any";
        case Change::scalar: return "scalar";
        case Change::member: return "member";
        case Change::entry: return "entry";
        case Change::line: return "log line";
        case Change::outside: return "message, print or watchdog";
    }
    return "none";
}

class Run {
  public:
    explicit Run(fuzz::Bytes bytes)
        : bytes_(bytes),
          environment_(watcher_),
          manager_(clock_, environment_),
          scope_(manager_),
          invariants_(tree_, [](const std::string& broken) { fuzz::fail("broken: " + broken); }),
          observer_(watcher_),
          inputs_(tree_, observer_) {}

    // What was to be seen of it.
    std::string operator()() {
        const unsigned how = bytes_.take();
        alone_ = how % 4 == 0;
        watcher_.keeps();
        if (alone_) {
            watcher_.logged = [this](const auto& log) { invariants_.onLog(log); };
            watcher_.written = [this](const auto& entity, const auto& attribute) {
                invariants_.onScalar(entity, attribute);
            };
        } else if (fuzz::insideAllowed()) {
            watcher_.happens = [this](Change change) { happens(change); };
        }
        if (how % 8 < 6) perform(fuzz::setUp(bytes_));
        for (; operations_ < mostOperations && goesOn(); ++operations_)
            perform(fuzz::next(bytes_, tree_));
        watcher_.happens = [](Change) {};
        if (!assertions_.failed()) settle();
        if (!assertions_.failed()) idle();
        if (!assertions_.failed()) stands();
        if (!assertions_.failed()) watcher_.onEnd(manager_.currentTime(), tree_);
        std::string seen = watcher_.text();
        if (assertions_.failed()) seen += "Assertion failed: " + *assertions_.failed() + '\n';
        if (alone_) compare(seen);
        return seen;
    }

  private:
    bool goesOn() const { return !bytes_.done() && !assertions_.failed(); }

    void perform(const Operation& operation) {
        using Kind = Operation::Kind;
        switch (operation.kind) {
            case Kind::inputs:
                for (const Host::Input& input : operation.inputs) apply(input);
                break;
            case Kind::inside:
                if (alone_) break;
                if (fuzz::shown())
                    fuzz::show(indent() + "inside of callback " + std::to_string(operation.count) +
                               " of kind " + kindText(operation.change) + " from now:");
                countdown_ = operation.count;
                awaited_ = operation.change;
                break;
            case Kind::restart:
                if (!alone_) restart();
                break;
            case Kind::settle:
            case Kind::pass:
            case Kind::passDue:
                if (depth_ == 0) pass(operation);
                break;
        }
        if (depth_ == 0 && !assertions_.failed() && operation.kind != Kind::inside) stands();
    }

    void apply(Host::Input input) {
        if (assertions_.failed()) return;
        input.at = manager_.currentTime();
        if (fuzz::shown()) fuzz::show(indent() + Host::inputLine(input));
        assertions_.excuse(input);
        try {
            inputs_.apply(input);
        } catch (const Host::MalformedInput& error) {
            if (fuzz::shown()) fuzz::show(indent() + "refused: " + error.what());
            return;
        }
        // The model is shown what the library has taken.
        if (alone_) done_.push_back(std::move(input));
        if (depth_ == 0) invariants_.onInput();
    }

    void restart() {
        fuzz::show(indent() + (tree_.manager() ? "the manager is dropped" : "the manager is made"));
        if (tree_.manager()) {
            tree_.stop();
            return;
        }
        try {
            tree_.start();
        } catch (const fuzz::AssertionFailed&) {
        } catch (const Orv::Error& error) {
            // Somebody wrote in the midst of it: there is no manager then, and no callback that
            // would have kept the error.
            fuzz::show(indent() + "error: " + error.what());
        }
    }

    // --- Time

    void pass(const Operation& operation) {
        const double now = manager_.currentTime();
        const double due = manager_.clock()->nextTime();
        double to = now;
        if (operation.kind == Operation::Kind::pass) {
            to = now + operation.seconds;
        } else if (operation.kind == Operation::Kind::passDue && due > now && std::isfinite(due)) {
            to = operation.seconds == 0.5 ? now + (due - now) / 2
                 : operation.seconds == 1 ? due + 0.125
                                          : due;
        }
        // What is due at that very time fires after the inputs that follow.
        if (to > now) runUntil(to);
        if (operation.kind != Operation::Kind::settle) {
            if (fuzz::shown()) fuzz::show("it is " + std::to_string(to));
            return;
        }
        settle();
    }

    void settle() {
        Host::Input input;
        input.at = manager_.currentTime();
        if (fuzz::shown()) fuzz::show(Host::inputLine(input));
        if (alone_) done_.push_back(std::move(input));
        manager_.settle();
    }

    // As one runUntil() would, but with a look at every instant.
    void runUntil(double to) {
        for (;;) {
            const double due = manager_.clock()->nextTime();
            if (!(due < to) || assertions_.failed()) break;
            instant(due);
        }
        if (!assertions_.failed()) manager_.runUntil(to);
    }
    void idle() {
        while (manager_.clock()->armedTimers() > 0 && !assertions_.failed())
            instant(manager_.clock()->nextTime());
    }
    void instant(double due) {
        manager_.runUntil(due);
        manager_.settle();
        if (!assertions_.failed()) stands();
    }

    // --- Inside of callbacks

    void happens(Change change) {
        if (awaited_ != Change::any && awaited_ != change) return;
        if (countdown_ == 0 || --countdown_ > 0 || !goesOn() || operations_ >= mostOperations)
            return;
        ++operations_;
        ++depth_;
        assertions_.excuseInside();
        perform(fuzz::nextInside(bytes_, tree_));
        --depth_;
    }
    std::string indent() const { return std::string(depth_ * 4, ' '); }

    // --- What has to be true

    void stands() { invariants_.onStanding(); }

    void compare(const std::string& actual) {
        conformance::State model = conformance::initialState();
        for (const Host::Input& input : done_) {
            const conformance::Line line = conformance::parseLine(Host::inputLine(input));
            conformance::advanceBefore(model, line.at);
            if (model.aborted) break;
            const std::string problem = conformance::problem(model, line);
            // It knows nothing of what the manager never looks at, and not that what is not there
            // can be deleted; it has no say in the root's own entries, nor in a key that is not the
            // value's own.
            const bool atRoot = line.path.find('/', 1) == std::string::npos;
            if (problem == "no such attribute") continue;
            if (!problem.empty() && line.op == conformance::Op::remove && !atRoot) continue;
            if (!problem.empty()) return fuzz::show("not compared with the model: " + problem);
            conformance::feed(model, line);
        }
        conformance::finish(model);
        std::string expected;
        for (const conformance::Observation& observation : model.observed)
            (expected += conformance::textOf(observation)) += '\n';
        if (model.aborted)
            expected += "Assertion failed: " + *model.aborted + '\n';
        else
            (expected += conformance::textOf(model.now, conformance::treeOf(model))) += '\n';
        const std::string difference = conformance::firstDifference(expected, actual);
        fuzz::expect(difference.empty(), "the model does otherwise: " + difference);
    }

    fuzz::Bytes bytes_;
    fuzz::Assertions assertions_;
    Watcher watcher_;
    Orv::VirtualTime clock_;
    Host::FeedEnvironment environment_;
    Orv::ActivityManager manager_;
    Orv::ActivityScope scope_;
    Host::Tree tree_;
    conformance::Invariants invariants_;
    Host::FeedObserver observer_;
    Host::Inputs inputs_;

    // Nothing is done inside of callbacks, and there is one manager: so the model can tell.
    bool alone_ = false;
    std::size_t operations_ = 0;
    std::size_t depth_ = 0;
    unsigned countdown_ = 0;
    Change awaited_ = Change::any;
    std::vector<Host::Input> done_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string seen = Run(fuzz::Bytes(data, size))();
    fuzz::show("--- once more, with walks");
    const conformance::Walks walks(true);
    const std::string walked = Run(fuzz::Bytes(data, size))();
    const std::string difference = conformance::firstDifference(walked, seen);
    fuzz::expect(difference.empty(), "the walks do otherwise: " + difference);
    return 0;
}
