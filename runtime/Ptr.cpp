#include "runtime/Ptr.h"

#include <exception>
#include <utility>

#include "runtime/ActivityManager.h"
#include "runtime/Environment.h"
#include "runtime/Notifiee.h"
#include "runtime/String.h"

namespace Orv {

std::atomic<bool> threadSafePtrSwitch{false};

thread_local constinit int DeliveryScope::depth = 0;
thread_local constinit PtrInterface* DeliveryScope::buried = nullptr;

PtrInterface::~PtrInterface() {
    while (firstNotifiee_ != nullptr) firstNotifiee_->unlink();
}

String PtrInterface::path() const { return {}; }

void PtrInterface::lastReference() {
    count_.set(deletionPendingFlag);
    if (firstNotifiee_ != nullptr)
        deliver([](NotifieeBase& n) {
            if (n.wantsZeroReferences_) n.onZeroReferences();
        });
    if (references() == 0) lastReferenceGone();
    if (references() == 0 && DeliveryScope::depth != 0) {
        nextBuried_ = DeliveryScope::buried;
        DeliveryScope::buried = this;
    } else {
        deleteUnlessTakenBack();
    }
}

void PtrInterface::deleteUnlessTakenBack() {
    if (references() == 0)
        delete this;
    else
        count_.clear(deletionPendingFlag);
}

void DeliveryScope::deleteBuried() {
    while (buried != nullptr) {
        PtrInterface* const object = buried;
        buried = std::exchange(object->nextBuried_, nullptr);
        object->deleteUnlessTakenBack();
    }
}

void DeliveryScope::reportException() noexcept {
    Environment& environment = activityManager().environment();
    try {
        throw;
    } catch (const std::exception& e) {
        environment.notificationException(e.what());
    } catch (...) {
        environment.notificationException("unknown exception");
    }
}

void NotifieeBase::link(const PtrInterface* notifier) {
    // Being watched does not change what an entity holds, so readers may watch it.
    list_ = const_cast<PtrInterface*>(notifier);
    previous_ = list_->lastNotifiee_;
    next_ = nullptr;
    (previous_ != nullptr ? previous_->next_ : list_->firstNotifiee_) = this;
    list_->lastNotifiee_ = this;
    ++list_->notifiees_;
}

void NotifieeBase::unlink() {
    if (list_ == nullptr) return;
    for (Delivery* d = list_->deliveries_; d != nullptr; d = d->outer_) d->passOver(*this);
    (previous_ != nullptr ? previous_->next_ : list_->firstNotifiee_) = next_;
    (next_ != nullptr ? next_->previous_ : list_->lastNotifiee_) = previous_;
    --list_->notifiees_;
    list_ = nullptr;
}

}  // namespace Orv
