// What the manager does, as one feed for whoever wants to show, record or judge it.
#pragma once

#include <utility>
#include <vector>

#include "model/InstanceLog.h"
#include "runtime/Environment.h"
#include "runtime/Halbe.h"
#include "runtime/LogHandle.h"
#include "runtime/TreeObserver.h"

namespace Host {

class Tree;

// Takes the feed. `t` is the clock's time, in seconds; calls come in the order in which things
// happen, in the midst of them: a view reads, and changes nothing.
class View {
  public:
    View() = default;
    virtual ~View();
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    // The manager and its tree were made; what becomes of them is fed from now on.
    virtual void onBegin(const Tree&) {}

    // A scalar has a new value.
    virtual void onScalar(double, const Orv::Entity&, const Orv::Attribute&) {}
    // A member came or has a new value (the entity holds it), or went (it does not).
    virtual void onMember(double, const Orv::Entity&, const Orv::Attribute&, const Orv::Value&) {}
    // A directory's entry came or went.
    virtual void onEntry(double, const Orv::Entity&, bool /*present*/) {}
    // A line was appended to an instance's progress log; it is the last.
    virtual void onLog(double, const Stage::InstanceLog&) {}
    // An operator message was raised; with its text.
    virtual void onMessage(double, const Orv::LogHandle&, const Orv::String&) {}
    // A watchdog time-out was set.
    virtual void onWatchdog(double, const Halbe::HalbeInfo&) {}
    // A line for standard output was written.
    virtual void onPrint(double, const Orv::String&) {}
    // An exception left a callback or a timer's handler.
    virtual void onError(double, const char* /*what*/) {}

    // The feed has ended well; everything is in the tree.
    virtual void onEnd(double, const Tree&) {}

    // Writes out whatever it holds back.
    virtual void flush() {}
};

// Passes the feed on to several, in that order. They outlive it.
class Views : public View {
  public:
    explicit Views(std::vector<View*> views) : views_(std::move(views)) {}

    void onBegin(const Tree& tree) override;
    void onScalar(double t, const Orv::Entity& entity, const Orv::Attribute& attribute) override;
    void onMember(double t, const Orv::Entity& entity, const Orv::Attribute& attribute,
                  const Orv::Value& key) override;
    void onEntry(double t, const Orv::Entity& entry, bool present) override;
    void onLog(double t, const Stage::InstanceLog& log) override;
    void onMessage(double t, const Orv::LogHandle& message, const Orv::String& text) override;
    void onWatchdog(double t, const Halbe::HalbeInfo& watchdog) override;
    void onPrint(double t, const Orv::String& line) override;
    void onError(double t, const char* what) override;
    void onEnd(double t, const Tree& tree) override;
    void flush() override;

  private:
    std::vector<View*> views_;
};

// Feeds what leaves the library.
class FeedEnvironment final : public Orv::Environment {
  public:
    explicit FeedEnvironment(View& view) : view_(view) {}

    void operatorMessage(const Orv::LogHandle& message, const Orv::String& text) override;
    void notificationException(const char* what) noexcept override;
    Orv::Ptr<Halbe::HalbeInfo> halbeInfo(const Orv::String& name, unsigned slot,
                                         bool flag) override;
    void print(const Orv::String& line) override;
    void assertionFailed(const char* expression) noexcept override;

  private:
    View& view_;
};

// Feeds the changes of the trees of its thread, except those that the host makes itself.
class FeedObserver final : public Orv::TreeObserver {
  public:
    explicit FeedObserver(View& view) : view_(view) {}

    // The host is about to change this attribute (null: the entries) of the object; the next such
    // change is its own. A null object takes that back.
    void ownChangeIs(const Orv::PtrInterface* object, const Orv::Attribute* attribute) {
        ownObject_ = object;
        ownAttribute_ = attribute;
    }

    void onScalar(const Orv::Entity& entity, const Orv::Attribute& attribute) override;
    void onMember(const Orv::Entity& entity, const Orv::Attribute& attribute,
                  const Orv::Value& key) override;
    void onEnqueued(const Orv::Entity& entity, const Orv::Attribute& attribute) override;
    void onEntry(const Orv::Dir& dir, const Orv::Entity& entry, bool present) override;

  private:
    bool own(const Orv::PtrInterface& object, const Orv::Attribute* attribute);

    View& view_;
    const Orv::PtrInterface* ownObject_ = nullptr;
    const Orv::Attribute* ownAttribute_ = nullptr;
};

}  // namespace Host
