#include "host/Observations.h"

#include "runtime/ActivityManager.h"
#include "runtime/Dir.h"

namespace Host {

View::~View() = default;

void Views::onBegin(const Tree& tree) {
    for (View* const view : views_) view->onBegin(tree);
}

void Views::onScalar(double t, const Orv::Entity& entity, const Orv::Attribute& attribute) {
    for (View* const view : views_) view->onScalar(t, entity, attribute);
}

void Views::onMember(double t, const Orv::Entity& entity, const Orv::Attribute& attribute,
                     const Orv::Value& key) {
    for (View* const view : views_) view->onMember(t, entity, attribute, key);
}

void Views::onEntry(double t, const Orv::Entity& entry, bool present) {
    for (View* const view : views_) view->onEntry(t, entry, present);
}

void Views::onLog(double t, const Stage::InstanceLog& log) {
    for (View* const view : views_) view->onLog(t, log);
}

void Views::onMessage(double t, const Orv::LogHandle& message, const Orv::String& text) {
    for (View* const view : views_) view->onMessage(t, message, text);
}

void Views::onWatchdog(double t, const Halbe::HalbeInfo& watchdog) {
    for (View* const view : views_) view->onWatchdog(t, watchdog);
}

void Views::onPrint(double t, const Orv::String& line) {
    for (View* const view : views_) view->onPrint(t, line);
}

void Views::onError(double t, const char* what) {
    for (View* const view : views_) view->onError(t, what);
}

void Views::onEnd(double t, const Tree& tree) {
    for (View* const view : views_) view->onEnd(t, tree);
}

void Views::flush() {
    for (View* const view : views_) view->flush();
}

namespace {

double now() { return Orv::System::currentTime(); }

class WatchdogRecord final : public Halbe::HalbeInfo {
  public:
    WatchdogRecord(View& view, const Orv::String& name, unsigned slot, bool flag)
        : HalbeInfo(name, slot, flag), view_(view) {}

    void watchdogTimeoutIs(Orv::String seconds) override {
        HalbeInfo::watchdogTimeoutIs(std::move(seconds));
        view_.onWatchdog(now(), *this);
    }

  private:
    View& view_;
};

}  // namespace

void FeedEnvironment::operatorMessage(const Orv::LogHandle& message, const Orv::String& text) {
    view_.onMessage(now(), message, text);
}

void FeedEnvironment::notificationException(const char* what) noexcept {
    view_.onError(now(), what);
}

Orv::Ptr<Halbe::HalbeInfo> FeedEnvironment::halbeInfo(const Orv::String& name, unsigned slot,
                                                      bool flag) {
    return Orv::make<WatchdogRecord>(view_, name, slot, flag);
}

void FeedEnvironment::print(const Orv::String& line) { view_.onPrint(now(), line); }

void FeedEnvironment::assertionFailed(const char*) noexcept { view_.flush(); }

bool FeedObserver::own(const Orv::PtrInterface& object, const Orv::Attribute* attribute) {
    if (ownObject_ != &object || ownAttribute_ != attribute) return false;
    ownObject_ = nullptr;
    return true;
}

void FeedObserver::onScalar(const Orv::Entity& entity, const Orv::Attribute& attribute) {
    if (!own(entity, &attribute)) view_.onScalar(now(), entity, attribute);
}

void FeedObserver::onMember(const Orv::Entity& entity, const Orv::Attribute& attribute,
                            const Orv::Value& key) {
    if (!own(entity, &attribute)) view_.onMember(now(), entity, attribute, key);
}

void FeedObserver::onEnqueued(const Orv::Entity& entity, const Orv::Attribute&) {
    // The model has one queue.
    if (const auto* const log = dynamic_cast<const Stage::InstanceLog*>(&entity))
        view_.onLog(now(), *log);
}

void FeedObserver::onEntry(const Orv::Dir& dir, const Orv::Entity& entry, bool present) {
    if (!own(dir, nullptr)) view_.onEntry(now(), entry, present);
}

}  // namespace Host
